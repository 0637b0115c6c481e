#pragma once

#include "system/audio.h"
#include "utils/Errors.h"

namespace android {

class AudioSystem {
 public:
    // Tells the audio policy that an output device is connected or disconnected.
    static status_t setDeviceConnectionState(audio_devices_t device, audio_policy_dev_state_t state,
                                             const char* deviceAddress, const char* deviceName,
                                             audio_format_t encodedFormat);
};

}  // namespace android
