// sta_reset_default, start_wfd_connection and connect_go_start_wfd.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "binder/ProcessState.h"
#include "bounded_copy.h"
#include "miracast_sigma.h"
#include "osal/osal.h"
#include "session_start.h"
#include "sigma_log.h"

namespace {

constexpr const char* kSourceFile = "miracastSigma/sigma_miracast";

// Makes the response text. Null, logged, without a response address or without memory.
char* allocateSessionIdText(char** response) {
    if (response == nullptr) {
        SIGMA_LOG("vestor: session_id is NULL");
        return nullptr;
    }
    *response = static_cast<char*>(osal_calloc(1, kSessionIdTextSize, kSourceFile, __LINE__));
    if (*response == nullptr) SIGMA_LOG("vestor: Calloc failed for session id");
    return *response;
}

// The command's result; a failed start takes its response text back.
int finishStart(int result, char** response) {
    if (result == -1) {
        free(*response);
        *response = nullptr;
    }
    return result;
}

}  // namespace

void createpool() { android::ProcessState::self()->startThreadPool(); }

int sta_reset_default(const char* command) {
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
    if (wfd_device_type == 1) deleteSurface();
    osal_sleep_ms(1000);
    createpool();
    return 0;
}

int start_wfd_connection(const char* passThroughText, const char* peerAddress, int port,
                         int peerDeviceType, char** response) {
    wfd_device_type = counterpartOf(peerDeviceType);
    if (allocateSessionIdText(response) == nullptr) return -1;
    char peer[32] = "";
    copyText(peer, peerAddress);
    return finishStart(
        startWfdConnection(passThroughText, peer, port, peerDeviceType, *response, nullptr),
        response);
}

int connect_go_start_wfd(const char* passThroughText, const char* peerAddress, int port,
                         int peerDeviceType, char** response) {
    if (allocateSessionIdText(response) == nullptr) return -1;
    return finishStart(
        startWfdConnection(passThroughText, peerAddress, port, peerDeviceType, *response, nullptr),
        response);
}
