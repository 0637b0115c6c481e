#include "media/AudioSystem.h"

#include "host/SimulatedDevice.h"
#include "host/text_format.h"

using namespace hostplatform;

namespace android {

status_t AudioSystem::setDeviceConnectionState(audio_devices_t audioDevice,
                                               audio_policy_dev_state_t state,
                                               const char* deviceAddress, const char* deviceName,
                                               audio_format_t encodedFormat) {
    const int status = device().faults().next(Fault::AudioRouting);
    device().journal().add(
        "audio", format("device 0x%x %s address \"%s\" name \"%s\" format %d -> %d", audioDevice,
                        state == AUDIO_POLICY_DEVICE_STATE_AVAILABLE ? "available" : "unavailable",
                        deviceAddress, deviceName, static_cast<int>(encodedFormat), status));
    return status;
}

}  // namespace android
