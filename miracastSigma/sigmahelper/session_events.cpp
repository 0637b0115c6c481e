#include "session_events.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "c_text.h"
#include "device_role.h"
#include "osal/osal.h"
#include "session_id_text.h"
#include "session_workers.h"
#include "sigma_log.h"
#include "sink_surface.h"
#include "uibc.h"
#include "virtual_display.h"
#include "wfd/WiFiDisplayClient.h"

namespace {

constexpr size_t kObjectSize = 256;

// The texts of one report. A text that the client did not send reads as empty.
class Objects {
 public:
    Objects(int count, const char (*objects)[kObjectSize])
        : mCount(objects == nullptr ? 0 : count), mObjects(objects) {}

    int sent() const { return mCount; }
    std::string_view operator[](int index) const {
        if (index >= mCount) return "";  // not {}: memcpy needs a pointer that is not null
        return {mObjects[index], strnlen(mObjects[index], kObjectSize)};
    }

 private:
    const int mCount;
    const char (*const mObjects)[kObjectSize];
};

// Converts a text with strtol or a function like it; *value gets the result in any case. Logs and
// returns false for an invalid or too large number.
template <typename Number>
bool parseDecimal(std::string_view text, Number (*convert)(const char*, char**, int),
                  Number* value) {
    char terminated[kObjectSize + 1];
    memcpy(terminated, text.data(), text.size());
    terminated[text.size()] = '\0';
    char* end = nullptr;
    errno = 0;
    *value = convert(terminated, &end, 10);
    if (end == terminated) errno = EINVAL;  // not every C library sets it
    if (errno != EINVAL && errno != ERANGE) return true;
    SIGMA_LOG("Conversion failed with error %d", errno);
    return false;
}

void onUibcControlCompleted() {
    SIGMA_LOG("UIBCControlCompleted Callback received!\n");
    SIGMA_LOG("Calling startUIBC()\n");
    if (WiFiDisplayClient* const client = gWFDClient) client->startUIBC();
    osal_sleep_ms(3000);
}

// Returns false if a number does not convert; the report is then not handled further.
bool onStreamStarted(const Objects& objects) {
    SIGMA_LOG("MMStreamStarted received \n");
    long width = 0;
    long height = 0;
    long secure = 0;
    unsigned long long producer = 0;  // unsigned: a tagged heap address has its top bit set
    if (!parseDecimal(objects[1], strtol, &width) || !parseDecimal(objects[2], strtol, &height) ||
        !parseDecimal(objects[3], strtol, &secure) ||
        !parseDecimal(objects[4], strtoull, &producer)) {
        return false;
    }
    mmSessionInfo info{};
    info.width = static_cast<uint32_t>(width);
    info.height = static_cast<uint32_t>(height);
    info.secure = static_cast<uint32_t>(secure);
    // The session client sends the producer's address as a number.
    const auto address = static_cast<uintptr_t>(producer);
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    info.producer = reinterpret_cast<android::IGraphicBufferProducer*>(address);
    createVDS(&info);
    enableDirectStreaming();  // the same runtime command follows the virtual display
    return true;
}

// Reacts to the report's name. Returns false if the report must not be handled further.
bool handleName(std::string_view name, int count, const Objects& objects) {
    if (name == "UIBCControlCompleted") onUibcControlCompleted();
    if (name == "MMEvent") {
        SIGMA_LOG("MMEvent num_objects = %d\n", count);
        if (count >= 5 && objects[0] == "MMStreamStarted" && !onStreamStarted(objects))
            return false;
    }
    if (name == "StreamControlCompleted" && count >= 2 && objects[1] == "TEARDOWN") {
        SIGMA_LOG("TEARDOWN received \n");
        releaseVDS();
    }
    if (name == "Error" && count >= 1 && objects[0] == "RTSPCloseCallback") {
        SIGMA_LOG("WFDDBUG: RTSPCloseCallback Received! Release VDS \n");
        releaseVDS();
    }
    if (name == "AudioEvent" && count >= 1 && objects[0] == "AudioProxyOpened") {
        SIGMA_LOG("AudioProxyOpened Received broadcasting intent \n");
        if (isSource()) startRoutingWorker(kRouteToProxy);
    }
    return true;
}

void onPlay() {
    const int sessionId = g_wfd_session_id;
    SIGMA_LOG("Enable UIBC for sessionID %d\n", sessionId);
    if (WiFiDisplayClient* const client = gWFDClient) client->enableUIBC(sessionId);
}

void onStreamEnds(bool teardown) {
    SIGMA_LOG("Broadcasting intent with 0\n");
    if (!isSource()) return;
    startRoutingWorker(kRouteBack);
    if (teardown && uibc_setup_done == 1) {
        SIGMA_LOG("UIBC[Src]Teardown received. Initiate UIBC termination\n");
        terminate_uibc_worker();
        joinUibcWorker();
    }
}

void onStopped() {
    const bool source = isSource();
    if (source) startRoutingWorker(kRouteBack);
    SIGMA_LOG("Received Stopped \n");
    // Hand over the current identifier and surface: the next session may have set its own, and
    // another role, by the time the worker runs. Exchange the identifier in one step, so that an
    // identifier stored in between is not lost.
    startCleanupWorker(g_wfd_session_id.exchange(0), source ? 0 : sinkSurfaceNumber());
}

void onNegotiating() {
    giveSinkSurfaceTo(gWFDClient);
    SIGMA_LOG("Received SetWFDSurface \n");
}

void onEstablished(std::string_view identifier) {
    long value = 0;
    const bool converted = parseDecimal(identifier, strtol, &value);
    // Store the text first: a thread that sees the identifier then reads a complete text.
    if (converted) setSessionIdText(identifier);
    g_wfd_session_id = static_cast<int32_t>(value);
}

// Reacts to the report's texts, for any name.
void handleObjects(const Objects& objects) {
    if (objects[1] == "PLAY") onPlay();
    const bool teardown = objects[1] == "TEARDOWN";
    if (objects[1] == "PAUSE" || teardown || objects[0] == "STANDBY") onStreamEnds(teardown);
    if (objects[0] == "STOPPED") onStopped();
    if (objects[0] == "NEGOTIATED") setSessionIdText(objects[2]);
    if (objects[0] == "NEGOTIATING") onNegotiating();
    if (objects[0] == "ESTABLISHED") onEstablished(objects[2]);
}

}  // namespace

void miracastWfdStringArrayCallback(const char* name, int count, char (*objects)[256],
                                    _jobject* const& /*javaObject*/) noexcept {
    const Objects texts(count, objects);
    SIGMA_LOG("\nReceived WFD event %s\n", printable(name));
    for (int i = 0; i < texts.sent(); ++i) {
        SIGMA_LOG("%d. %.*s \n", i, static_cast<int>(texts[i].size()), texts[i].data());
    }
    if (name != nullptr && !handleName(name, count, texts)) return;
    if (count >= 2) handleObjects(texts);
}
