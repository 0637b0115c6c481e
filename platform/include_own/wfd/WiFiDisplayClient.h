// The platform's Wi-Fi Display session client: the declaration that the library is built against.
// The client runs the session (RTSP, RTP, UIBC) and reports what happens to it through callbacks on
// threads of its own, never on the thread of a call into it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#include "gui/Surface.h"
#include "jni.h"

// One end of a session.
struct WfdDevice {
    char ipAddress[32];   // IPv4, dotted decimal; empty when not known
    char name[64];        // not used by this library
    int32_t rtspPort;     // RTSP control port
    int32_t deviceType;   // 0 = source, 1 = primary sink
    uint8_t reserved[8];  // the client's own
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

// A report: its name, a number of 256-byte texts, and a Java object that native users ignore.
typedef void (*WfdEventCallback)(const char* name, int count, char (*objects)[256],
                                 _jobject* const& javaObject);
// A received input event; false tells the client that it was not taken.
typedef bool (*WfdUibcCallback)(WFD_uibc_event_t* event, const void* data, _jobject* const& obj1,
                                _jobject* const& obj2);
// A received HID report.
typedef bool (*WfdHidCallback)(const void* report, int length);

namespace hostplatform {
class SimulatedClient;
}

class WiFiDisplayClient {
 public:
    WiFiDisplayClient(WfdEventCallback eventCallback, WfdUibcCallback uibcCallback,
                      WfdHidCallback hidCallback);
    WiFiDisplayClient(const WiFiDisplayClient&) = delete;
    WiFiDisplayClient& operator=(const WiFiDisplayClient&) = delete;

    // A client is made with the non-throwing form: null when the session service gives none.
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
    static void operator delete(void* memory) noexcept;
    static void operator delete(void* memory, const std::nothrow_t&) noexcept;

    // All results: 0, or a negative number when the client refuses. Session identifiers are those
    // that the client reported. None of these calls blocks; what follows is reported.
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
    hostplatform::SimulatedClient* const mImpl;
};
