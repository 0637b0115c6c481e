// The bodies of the session event handler's workers: audio routing, and the end of a session.
#include "media/AudioSystem.h"
#include "session_events.h"
#include "sigma_log.h"
#include "sink_surface.h"
#include "wfd/WiFiDisplayClient.h"

namespace {

void routeAudio(bool toProxy) {
    if (toProxy) {
        SIGMA_LOG("Audio System Proxy enable for device: %x\n", AUDIO_DEVICE_OUT_PROXY);
    } else {
        SIGMA_LOG("Audio System Proxy disable for device: %x\n", AUDIO_DEVICE_OUT_PROXY);
    }
    const android::status_t status = android::AudioSystem::setDeviceConnectionState(
        AUDIO_DEVICE_OUT_PROXY,
        toProxy ? AUDIO_POLICY_DEVICE_STATE_AVAILABLE : AUDIO_POLICY_DEVICE_STATE_UNAVAILABLE, "",
        "", AUDIO_FORMAT_DEFAULT);
    SIGMA_LOG("return val: %d \n", status);
}

}  // namespace

void* broadcast_thread(void* routing) {
    if (routing == nullptr) return nullptr;
    const int value = *static_cast<const int*>(routing);
    SIGMA_LOG("Val = %d \n", value);
    if (value == kRouteToProxy) {
        SIGMA_LOG("Play Received broadcasting intent \n");
        SIGMA_LOG("Enable routing to proxy for audio!\n");
        routeAudio(true);
    } else if (value == kRouteBack) {
        SIGMA_LOG("Pause/Teardown/Standby Received broadcasting intent \n");
        SIGMA_LOG("Disable routing to proxy for audio!\n");
        routeAudio(false);
    }
    return nullptr;
}

void* cleanup_thread(void* request) {
    const auto* const cleanup = static_cast<const CleanupRequest*>(request);
    if (cleanup == nullptr || cleanup->code != kStopSessionCode) return nullptr;
    SIGMA_LOG("Disable WFD and cleanup \n");
    WiFiDisplayClient* const client = gWFDClient;
    if (client != nullptr) client->stopWfdSession(cleanup->sessionId, nullptr);
    // Only the identifier that was stopped: a session that began meanwhile keeps its own.
    int32_t stopped = cleanup->sessionId;
    g_wfd_session_id.compare_exchange_strong(stopped, 0);
    if (wfd_device_type != 0) deleteSurface_impl();
    return nullptr;
}

void callSetDeviceConnectionStateSigma(int enable) { routeAudio(enable != 0); }
