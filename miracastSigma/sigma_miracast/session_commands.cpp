// sta_reset_default, start_wfd_connection and connect_go_start_wfd.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "binder/ProcessState.h"
#include "c_text.h"
#include "device_role.h"
#include "discovery.h"
#include "local_address.h"
#include "miracast_sigma.h"
#include "osal/osal.h"
#include "session_start.h"
#include "sigma_log.h"

namespace {

constexpr const char* kSourceFile = "miracastSigma/sigma_miracast";

constexpr size_t kAddressSize = 32;

// Makes the response text. Logs and returns null without a response address or without memory.
char* allocateSessionIdText(char** response) {
    if (response == nullptr) {
        SIGMA_LOG("vestor: session_id is NULL");
        return nullptr;
    }
    *response = static_cast<char*>(osal_calloc(1, kSessionIdTextSize, kSourceFile, __LINE__));
    if (*response == nullptr) SIGMA_LOG("vestor: Calloc failed for session id");
    return *response;
}

// Returns the command's result; frees the response text of a failed start.
int finishStart(int result, char** response) {
    if (result == MIRACAST_ERROR) {
        free(*response);
        *response = nullptr;
    }
    return result;
}

// Finds the peer on the infrastructure network. Stores this device's address and, if a peer is
// found, the peer's address and port. A source asks the sink that it found to connect.
void discoverPeer(char (&peerAddress)[kAddressSize], int* port,
                  char (&localAddress)[kAddressSize]) {
    getSigmaLocalIpAddress(localAddress, kAddressSize, "wlan0");
    printf("discovering mdns peer \n");
    discovermDNSPeer(wfd_device_type);
    const bool found = waitforDiscovery() == 0;
    const bool source = isSource();
    if (found) {
        getmDNSPeerIPandPort(peerAddress, kAddressSize, port);
        printf("%s %d \n", peerAddress, *port);
        if (source) triggerSinkConnection(localAddress, kRtspControlPort);
    }
    if (source) *port = kRtspControlPort;
}

}  // namespace

void createpool() noexcept { android::ProcessState::self()->startThreadPool(); }

int sta_reset_default(const char* command) noexcept {
    if (command != nullptr) {
        int version = 1;
        if (strcasestr(command, "DisplayR2") != nullptr) {
            printf("setting miracast R2 \n");
            version = 2;
        }
        wfd_version = version;
    }
    if (const int sessionId = g_wfd_session_id; sessionId != 0) {
        teardownRtsp(sessionId, 0);
        g_wfd_session_id = 0;
    }
    if (wfd_device_type == MIRACAST_PRIMARY_SINK) deleteSurface();
    osal_sleep_ms(1000);
    createpool();
    return MIRACAST_COMPLETED;
}

int start_wfd_connection(const char* passThroughText, const char* peerAddress, int port,
                         int peerDeviceType, char** response) noexcept {
    wfd_device_type = counterpartOf(peerDeviceType);
    if (allocateSessionIdText(response) == nullptr) return MIRACAST_ERROR;
    char peer[kAddressSize] = "";
    char local[kAddressSize] = "";
    copyText(peer, peerAddress);
    if (port == MIRACAST_DISCOVER_PEER) discoverPeer(peer, &port, local);
    return finishStart(startWfdConnection(passThroughText, peer, port, peerDeviceType, *response,
                                          local[0] == '\0' ? nullptr : local),
                       response);
}

int connect_go_start_wfd(const char* passThroughText, const char* peerAddress, int port,
                         int peerDeviceType, char** response) noexcept {
    if (allocateSessionIdText(response) == nullptr) return MIRACAST_ERROR;
    return finishStart(
        startWfdConnection(passThroughText, peerAddress, port, peerDeviceType, *response, nullptr),
        response);
}
