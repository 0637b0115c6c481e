#include "session_workers.h"

#include <cerrno>
#include <memory>
#include <new>

#include "Undestroyed.h"
#include "detached_thread.h"
#include "device_role.h"
#include "media/AudioSystem.h"
#include "sigma_log.h"
#include "sink_surface.h"
#include "thread_annotations.h"
#include "utils/Condition.h"
#include "utils/Mutex.h"
#include "wfd/WiFiDisplayClient.h"

namespace {

// Each routing worker has a ticket. The workers make their calls in the order of the tickets.
Undestroyed<android::Mutex> routingLock;
Undestroyed<android::Condition> routingTurn;
uint32_t nextTicket SIGMA_GUARDED_BY(*routingLock) = 0;
uint32_t currentTicket SIGMA_GUARDED_BY(*routingLock) = 0;

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

void stopSession(int sessionId) {
    SIGMA_LOG("Disable WFD and cleanup \n");
    if (WiFiDisplayClient* const client = gWFDClient) client->stopWfdSession(sessionId, nullptr);
}

struct RoutingTask {
    int routing;
    uint32_t ticket;

    void run() {
        {
            const android::Mutex::Autolock lock(*routingLock);
            while (currentTicket != ticket) routingTurn->wait(*routingLock);
        }
        broadcast_thread(&routing);
        const android::Mutex::Autolock lock(*routingLock);
        ++currentTicket;
        routingTurn->broadcast();
    }
};

struct CleanupTask {
    int sessionId;
    uint32_t surfaceNumber;

    // The event handler has cleared the identifier. Do not clear it here: an identifier stored
    // since then belongs to a new session, even if the numbers are equal.
    void run() const {
        stopSession(sessionId);
        deleteSinkSurface(surfaceNumber);
    }
};

template <typename Task>
void* runTask(void* task) {
    const std::unique_ptr<Task> owned(static_cast<Task*>(task));
    owned->run();
    return nullptr;
}

// Runs a copy of the task on a detached thread. Logs and returns false without memory or a thread.
template <typename Task>
bool start(const Task& task) {
    std::unique_ptr<Task> copy(new (std::nothrow) Task(task));
    const int error = copy == nullptr ? ENOMEM : startDetachedThread(runTask<Task>, copy.get());
    if (error != 0) {
        SIGMA_LOG("pthread_create for broadcasting intent failed: %d \n", error);
        return false;
    }
    (void)copy.release();  // owned by the thread
    return true;
}

}  // namespace

void startRoutingWorker(int routing) {
    // Hold the lock until the thread exists: a ticket without a thread would block all later ones.
    const android::Mutex::Autolock lock(*routingLock);
    if (start(RoutingTask{routing, nextTicket})) ++nextTicket;
}

void startCleanupWorker(int sessionId, uint32_t surfaceNumber) {
    start(CleanupTask{sessionId, surfaceNumber});
}

void* broadcast_thread(void* routing) noexcept {
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

void* cleanup_thread(void* request) noexcept {
    const auto* const cleanup = static_cast<const CleanupRequest*>(request);
    if (cleanup == nullptr || cleanup->code != kStopSessionCode) return nullptr;
    stopSession(cleanup->sessionId);
    // A new session may have stored its identifier meanwhile: clear the stopped one only.
    int32_t stopped = cleanup->sessionId;
    g_wfd_session_id.compare_exchange_strong(stopped, 0);
    if (!isSource()) deleteSurface_impl();
    return nullptr;
}

void callSetDeviceConnectionStateSigma(int enable) noexcept { routeAudio(enable != 0); }
