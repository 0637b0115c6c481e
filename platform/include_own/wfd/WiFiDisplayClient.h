// The platform's Wi-Fi Display session client, as far as the library uses it. The client runs the
// session (RTSP, RTP, UIBC) and reports events through callbacks on its own threads, never on the
// thread that calls it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "gui/Surface.h"
#include "jni.h"

// One end of a session.
struct WfdDevice {
    char ipAddress[32];   // IPv4, dotted decimal; empty when not known
    char name[64];        // not used by this library
    int32_t rtspPort;     // RTSP control port
    int32_t deviceType;   // 0 = source, 1 = primary sink
    uint8_t reserved[8];  // for the client itself
    int32_t r2;           // non-zero: Wi-Fi Display R2
};
static_assert(offsetof(WfdDevice, name) == 32, "session client's record");
static_assert(offsetof(WfdDevice, rtspPort) == 96, "session client's record");
static_assert(offsetof(WfdDevice, deviceType) == 100, "session client's record");
static_assert(offsetof(WfdDevice, r2) == 112, "session client's record");

// One input event that the sink sent over the user input back channel.
struct WFD_uibc_event_t {
    uint32_t type;  // 0 = touch, 1 = key
    uint32_t reserved;
    uint8_t params[176];  // first the action (32 bits), then for a key its character code (16 bits)
};
static_assert(offsetof(WFD_uibc_event_t, params) == 8, "session client's record");
static_assert(sizeof(WFD_uibc_event_t) == 184, "session client's record");

// Reports an event: its name, `count` texts of 256 bytes, and a Java object, which native code
// ignores.
typedef void (*WfdEventCallback)(const char* name, int count, char (*objects)[256],
                                 _jobject* const& javaObject);
// Delivers a received input event; false means that it was not accepted.
typedef bool (*WfdUibcCallback)(WFD_uibc_event_t* event, const void* data, _jobject* const& obj1,
                                _jobject* const& obj2);
// Delivers a received HID report.
typedef bool (*WfdHidCallback)(const void* report, int length);

class WiFiDisplayClient {
 public:
    WiFiDisplayClient(WfdEventCallback eventCallback, WfdUibcCallback uibcCallback,
                      WfdHidCallback hidCallback);
    WiFiDisplayClient(const WiFiDisplayClient&) = delete;
    WiFiDisplayClient& operator=(const WiFiDisplayClient&) = delete;

    // All calls return 0, or a negative number if the client refuses, without blocking; the client
    // reports their effects. Session identifiers are those that the client reported.
    int createWfdSession(WfdDevice* local, WfdDevice* peer);
    int stopWfdSession(int sessionId, _JNIEnv* env);
    int teardown_rtsp(int sessionId, bool flag);
    int pause_rtsp(int sessionId, bool flag);
    int play_rtsp(int sessionId, bool flag);
    int standby_rtsp(int sessionId);
    // codec: 0 H.264, 1 H.265, 2 LPCM, 3 AAC; resolution: `count` numbers of width and height.
    int sendAvFormatChange(int codec, int profile, int arg3, int arg4, int arg5, int* resolution,
                           int count);
    // transport: 1 TCP, 0 UDP.
    int negotiateRtpTransport(int transport, int arg2, int arg3);
    int executeRuntimeCommand(int command);
    int sendIDRRequest();
    int startUIBC();
    int enableUIBC(int sessionId);
    int setSurface(android::Surface* surface);

 private:
    class Impl;
    Impl* const mImpl;
};
