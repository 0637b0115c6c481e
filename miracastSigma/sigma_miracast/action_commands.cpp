// dev_exec_action and sta_generate_event: direct streaming, IDR requests and user input.
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "Parameter.h"
#include "c_text.h"
#include "device_role.h"
#include "miracast_sigma.h"
#include "osal/osal.h"
#include "shell_command.h"
#include "sigma_log.h"
#include "uibc.h"

namespace {

constexpr const char* kKeyBack = "input keyevent 4";

// Returns the clip of an H.264 profile; null for an unknown one. Not const: pthread_create takes
// void*.
char* clipFor(const Parameter<64>& codecProfile) {
    static char baseline[] = "/sdcard/DS_BP_720.mp4";
    static char high[] = "/sdcard/DS_HP_720.mp4";
    if (codecProfile.is("H264-0")) return baseline;
    if (codecProfile.is("H264-1")) return high;
    return nullptr;
}

int startDirectStreaming(const Parameter<64>& codecProfile) {
    // Switch before checking the profile: a refused profile leaves direct streaming enabled, too.
    enableDirectStreaming();
    osal_sleep_ms(1000);
    if (codecProfile.empty()) {
        printf("invalid codec profile \n");
        return MIRACAST_BAD_PARAMETER;
    }
    char* const clip = clipFor(codecProfile);
    if (clip == nullptr) return MIRACAST_BAD_PARAMETER;
    printf("start AVC Baseline playback \n");
    runShellCommand(kKeyBack);
    miracast_playback_thread_create(clip);
    printf("playback started \n");
    return MIRACAST_ACTION_DONE;
}

int requestIdr() {
    if (isSource()) {
        printf("sendIdrRequest: Unsupported Type for Generate Event For Source \n");
    } else {
        sendIDRRequest();
        printf("sendIdrRequest called \n");
    }
    return MIRACAST_COMPLETED;
}

bool isOneOf(const char* text, std::initializer_list<const char*> candidates) {
    for (const char* candidate : candidates) {
        if (strcmp(text, candidate) == 0) return true;
    }
    return false;
}

}  // namespace

void* miracast_playback_thread_entry(void* path) noexcept {
    runShellCommand("am force-stop org.lindenvale.gallery");
    osal_sleep_ms(2000);
    char command[256];
    snprintf(command, sizeof command,
             "am start -n  org.lindenvale.gallery/com.android.gallery3d.app.MovieActivity -d %s",
             printable(static_cast<const char*>(path)));
    runShellCommand(command);
    return nullptr;
}

int miracast_playback_thread_create(void* path) noexcept {
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, miracast_playback_thread_entry, path);
    // Do not publish the handle of a thread that was not created.
    if (error == 0) rtsp_playback_thread = thread;
    return error;
}

int dev_exec_action(const char* command) noexcept {
    SIGMA_LOG("vestor: Received Dev exec Action %s", printable(command));
    const Parameter<64> action(command, "DirectStreaming");
    printf("miracast_dev_exec_action \n");
    if (action.empty()) return MIRACAST_BAD_PARAMETER;
    const Parameter<64> codecProfile(command, "CodecProfile");
    if (action.is("Start")) return startDirectStreaming(codecProfile);
    if (action.is("Stop")) {
        printf("Stop direct streaming \n");
        runShellCommand(kKeyBack);
        return MIRACAST_ACTION_DONE;
    }
    return MIRACAST_BAD_PARAMETER;
}

int sta_generate_event(const char* command) noexcept {
    const Parameter<32> type(command, "Type");
    const Parameter<32> event(command, "UIBCEventType");
    printf("UIBCEventType is: %s\n", event.text());
    if (!event.found()) {
        if (strcmp(type.text(), "IdrReq") == 0) return requestIdr();
        printf("Unknown EventType!!!\n");
        return MIRACAST_NOTHING_DONE;
    }
    if (isSource()) setUpUibc();
    if (isOneOf(event.text(), {"Mouse", "MOUSE"})) {
        printf("Calling MOUSE SendUIBCEvent val=1\n");
        cmd_generate_UIBCEvent(kUibcMouse);
    } else if (isOneOf(event.text(), {"KeyBoard", "KEYBOARD", "Keyboard"})) {
        printf("Calling KEYBOARD SendUIBCEvent val=0\n");
        cmd_generate_UIBCEvent(type.is("UIBC_HID") ? kUibcHidKeyboard : kUibcKeyboard);
    }
    return MIRACAST_COMPLETED;
}
