// The log of the DNS-SD command channel.
#pragma once

#include "android/log.h"

#define MDNS_LOGD(...) __android_log_print(ANDROID_LOG_DEBUG, "MDnsDS", __VA_ARGS__)
#define MDNS_LOGW(...) __android_log_print(ANDROID_LOG_WARN, "MDnsDS", __VA_ARGS__)
#define MDNS_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, "MDnsDS", __VA_ARGS__)
