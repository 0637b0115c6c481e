#include "session_start.h"

#include <cstdio>
#include <new>

#include "c_text.h"
#include "device_role.h"
#include "miracast_sigma.h"
#include "osal/osal.h"
#include "session_events.h"
#include "session_id_text.h"
#include "sigma_log.h"
#include "uibc.h"
#include "wfd/WiFiDisplayClient.h"

namespace {

constexpr int kPolls = 60;
constexpr uint32_t kPollIntervalMs = 1000;

// Waits for the identifier that the event handler stores; returns 0 if none came in time.
int waitForSessionId() {
    SIGMA_LOG("Waiting for session ID\n");
    int sessionId = g_wfd_session_id;
    for (int poll = 0; sessionId == 0 && poll < kPolls; ++poll) {
        SIGMA_LOG("Obtained session ID %d", sessionId);
        osal_sleep_ms(kPollIntervalMs);
        sessionId = g_wfd_session_id;
    }
    return sessionId;
}

}  // namespace

int startWfdConnectionImpl(const char* /*passThroughText*/, const char* peerAddress, int port,
                           int peerDeviceType, char* sessionIdOut, const char* localAddress) {
    WfdDevice peer{};
    copyText(peer.ipAddress, peerAddress);
    peer.rtspPort = port;
    peer.deviceType = peerDeviceType;

    // Do not delete an earlier client: its threads may still be reporting.
    auto* const client =
        new (std::nothrow) WiFiDisplayClient(miracastWfdStringArrayCallback, injectEvent, nullptr);
    gWFDClient = client;
    if (wfd_version == 2) {
        SIGMA_LOG("configuring miracast R2\n");
        peer.r2 = 1;
    }
    if (client == nullptr) {
        SIGMA_LOG("Failed to instantiate client!");
        return -1;
    }
    setSessionIdText("");
    g_wfd_session_id = 0;

    WfdDevice local{};
    local.r2 = 1;
    local.deviceType = counterpartOf(peerDeviceType);
    copyText(local.ipAddress, localAddress);
    const int result = client->createWfdSession(&local, &peer);
    if (sessionIdOut == nullptr) return result;

    const int sessionId = waitForSessionId();
    if (sessionId == 0) {
        snprintf(sessionIdOut, kSessionIdTextSize, "NULL");
        return -1;
    }
    snprintf(sessionIdOut, kSessionIdTextSize, "%.8d", sessionId);
    SIGMA_LOG("Obtained session ID %s", sessionIdOut);
    return result;
}

int startWfdConnection(const char* passThroughText, const char* peerAddress, int port,
                       int peerDeviceType, char* sessionIdOut, const char* localAddress) noexcept {
    return startWfdConnectionImpl(passThroughText, peerAddress, port, peerDeviceType, sessionIdOut,
                                  localAddress);
}
