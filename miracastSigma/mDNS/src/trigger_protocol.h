// The trigger: how a Wi-Fi Display R2 source asks a sink to connect to it.
//
// One command on a fresh TCP connection, 4 bytes, big-endian: a 16-bit code, then the 16-bit port
// on the sender's host to connect to. The address is that of the connection.
#pragma once

#include <cstdint>

#include "android/log.h"

constexpr int kTriggerCommandSize = 4;
constexpr uint8_t kRequestConnection = 2;

#define TRIGGER_LOGV(...) __android_log_print(ANDROID_LOG_VERBOSE, "WFDTriggerTcp", __VA_ARGS__)
#define TRIGGER_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, "WFDTriggerTcp", __VA_ARGS__)
