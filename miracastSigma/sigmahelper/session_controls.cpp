// Runtime controls: pass requests of the test commands on to the session client.
#include <cstdio>
#include <cstring>

#include "miracast_sigma.h"
#include "sigma_log.h"
#include "wfd/WiFiDisplayClient.h"

namespace {

constexpr int kNoClient = -1;
constexpr int kStartDirectStreaming = 3;  // a runtime command of the session client

// Returns the session client; logs and returns null if there is none.
WiFiDisplayClient* loggedClient() {
    WiFiDisplayClient* const client = gWFDClient;
    if (client == nullptr) SIGMA_LOG("WFD Client is NULL\n");
    return client;
}

// Returns the session client's code of the first codec in the list that the text names; -1 for
// none.
int codecOf(const char* text) {
    constexpr const char* kCodecs[] = {"H264", "H265", "LPCM", "AAC"};
    int code = 0;
    for (const char* codec : kCodecs) {
        if (strstr(text, codec) != nullptr) return code;
        ++code;
    }
    return -1;
}

// Reads the profile of a video codec: the character after the first '-' behind "H26", minus '0'. An
// audio codec has profile 0. Logs and returns false if there is no profile or it is above 5.
bool profileOf(const char* text, int codec, int* profile) {
    *profile = 0;
    const char* const video = strstr(text, "H26");
    if (video == nullptr) return true;
    const char* const dash = strchr(video, '-');
    if (dash == nullptr || dash[1] == '\0') {
        SIGMA_LOG("Invalid profile string \n");
        return false;
    }
    const int character = static_cast<unsigned char>(dash[1]);
    *profile = character - '0';
    SIGMA_LOG("Received codec %d profile %d", codec, *profile);
    if (character > '5') {
        SIGMA_LOG("invalid profile \n");
        return false;
    }
    return true;
}

}  // namespace

int teardownRtsp(int sessionId, int flag) noexcept {
    WiFiDisplayClient* const client = loggedClient();
    if (client == nullptr) return kNoClient;
    client->teardown_rtsp(sessionId, flag != 0);
    return 0;
}

int pauseRtsp(int sessionId) noexcept {
    WiFiDisplayClient* const client = loggedClient();
    if (client == nullptr) return kNoClient;
    client->pause_rtsp(sessionId, false);
    return 0;
}

int playRtsp(int sessionId) noexcept {
    WiFiDisplayClient* const client = loggedClient();
    if (client == nullptr) return kNoClient;
    client->play_rtsp(sessionId, false);
    return 0;
}

int standbyRtsp(int sessionId) noexcept {
    WiFiDisplayClient* const client = loggedClient();
    if (client == nullptr) return kNoClient;
    client->standby_rtsp(sessionId);
    return 0;
}

int setParameter(int /*sessionId*/, int /*reserved*/, const char* text) noexcept {
    WiFiDisplayClient* const client = loggedClient();
    if (client == nullptr) return kNoClient;
    if (text == nullptr) text = "";
    const int codec = codecOf(text);
    if (codec < 0) {
        printf("Invalid codec string\n");
        return -1;
    }
    int profile = 0;
    if (!profileOf(text, codec, &profile)) return -1;
    int resolution[] = {1280, 720};
    client->sendAvFormatChange(codec, profile, 0, 3, 32, resolution, 2);
    return 0;
}

int transportswitch(int /*sessionId*/, int transport) noexcept {
    WiFiDisplayClient* const client = gWFDClient;
    if (client == nullptr) return kNoClient;
    client->negotiateRtpTransport(transport, 100, 0);
    return 0;
}

int enableDirectStreaming() noexcept {
    WiFiDisplayClient* const client = gWFDClient;
    return client == nullptr ? 0 : client->executeRuntimeCommand(kStartDirectStreaming);
}

int sendIDRRequest() noexcept {
    WiFiDisplayClient* const client = gWFDClient;
    if (client == nullptr) {
        SIGMA_LOG("sendIDRRequest : WFD Client is NULL\n");
        return kNoClient;
    }
    return client->sendIDRRequest();
}
