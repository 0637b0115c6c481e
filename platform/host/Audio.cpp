#include "Faults.h"
#include "Journal.h"
#include "media/AudioSystem.h"

namespace android {

status_t AudioSystem::setDeviceConnectionState(audio_devices_t device,
                                               audio_policy_dev_state_t state,
                                               const char* deviceAddress, const char* deviceName,
                                               audio_format_t encodedFormat) {
    const int status = hostplatform::faultStatus(hostplatform::Fault::AudioRouting);
    hostplatform::Journal::instance().addFormatted(
        "audio", "device 0x%x %s address \"%s\" name \"%s\" format %d -> %d", device,
        state == AUDIO_POLICY_DEVICE_STATE_AVAILABLE ? "available" : "unavailable", deviceAddress,
        deviceName, static_cast<int>(encodedFormat), status);
    return status;
}

}  // namespace android
