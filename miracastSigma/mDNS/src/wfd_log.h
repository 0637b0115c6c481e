// The log of WFDmDns and its exported functions.
#pragma once

#include "android/log.h"

#define WFD_LOGV(...) __android_log_print(ANDROID_LOG_VERBOSE, "WFDmDns", __VA_ARGS__)
#define WFD_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, "WFDmDns", __VA_ARGS__)
