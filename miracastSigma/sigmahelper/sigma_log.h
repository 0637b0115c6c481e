// The log of the command surface and the session machinery: error priority, no tag.
#pragma once

#include "android/log.h"

#define SIGMA_LOG(...) __android_log_print(ANDROID_LOG_ERROR, nullptr, __VA_ARGS__)
