// The codes of audio devices, device states and formats that audio routing uses.
#pragma once

#include <stdint.h>

typedef uint32_t audio_devices_t;

enum {
    AUDIO_DEVICE_OUT_PROXY = 0x2000000u,  // the output whose stream another process takes over
};

typedef enum {
    AUDIO_POLICY_DEVICE_STATE_UNAVAILABLE = 0,
    AUDIO_POLICY_DEVICE_STATE_AVAILABLE = 1,
} audio_policy_dev_state_t;

typedef enum {
    AUDIO_FORMAT_DEFAULT = 0,
} audio_format_t;
