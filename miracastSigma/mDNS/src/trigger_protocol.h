// The trigger: how a Wi-Fi Display R2 source asks a sink to connect to it.
//
// Each request is one TCP connection with one command of 4 bytes, big-endian: a 16-bit code, then
// the 16-bit port of the source to connect to. The source's address is that of the connection.
#pragma once

#include <cstdint>

#include "android/log.h"

constexpr int kTriggerCommandSize = 4;
constexpr uint8_t kRequestConnection = 2;

#define TRIGGER_LOGV(...) __android_log_print(ANDROID_LOG_VERBOSE, "WFDTriggerTcp", __VA_ARGS__)
#define TRIGGER_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, "WFDTriggerTcp", __VA_ARGS__)
