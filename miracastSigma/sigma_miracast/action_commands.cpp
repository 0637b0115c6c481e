// dev_exec_action and sta_generate_event: direct streaming, IDR requests and user input.
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "miracast_sigma.h"
#include "osal/osal.h"
#include "parameter.h"
#include "shell_command.h"
#include "sigma_log.h"
#include "uibc.h"

namespace {

constexpr int kDone = 1;
constexpr int kBadParameter = -2;

constexpr const char* kKeyBack = "input keyevent 4";

// The clip that shows an H.264 profile; null for an unknown one. Constant texts: they outlive the
// playback thread. Not const, as a thread's argument is not.
char* clipFor(const Parameter<64>& codecProfile) {
    static char baseline[] = "/sdcard/DS_BP_720.mp4";
    static char high[] = "/sdcard/DS_HP_720.mp4";
    if (codecProfile.is("H264-0")) return baseline;
    if (codecProfile.is("H264-1")) return high;
    return nullptr;
}

int startDirectStreaming(const Parameter<64>& codecProfile) {
    // Before the profile is looked at: a refused one still leaves the session switched.
    enableDirectStreaming();
    osal_sleep_ms(1000);
    if (codecProfile.empty()) {
        printf("invalid codec profile \n");
        return kBadParameter;
    }
    char* const clip = clipFor(codecProfile);
    if (clip == nullptr) return kBadParameter;
    printf("start AVC Baseline playback \n");
    runShellCommand(kKeyBack);
    miracast_playback_thread_create(clip);
    printf("playback started \n");
    return kDone;
}

int requestIdr() {
    if (wfd_device_type != 0) {
        sendIDRRequest();
        printf("sendIdrRequest called \n");
    } else {
        printf("sendIdrRequest: Unsupported Type for Generate Event For Source \n");
    }
    return 0;
}

bool isOneOf(const char* text, std::initializer_list<const char*> candidates) {
    for (const char* candidate : candidates) {
        if (strcmp(text, candidate) == 0) return true;
    }
    return false;
}

}  // namespace

void* miracast_playback_thread_entry(void* path) {
    runShellCommand("am force-stop org.lindenvale.gallery");
    osal_sleep_ms(2000);
    char command[256];
    snprintf(command, sizeof command,
             "am start -n  org.lindenvale.gallery/com.android.gallery3d.app.MovieActivity -d %s",
             printable(static_cast<const char*>(path)));
    runShellCommand(command);
    return nullptr;
}

int miracast_playback_thread_create(void* path) {
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, miracast_playback_thread_entry, path);
    // The handle of a thread that was not created is nothing that somebody should join.
    if (error == 0) rtsp_playback_thread = thread;
    return error;
}

int dev_exec_action(const char* command) {
    SIGMA_LOG("vestor: Received Dev exec Action %s", printable(command));
    const Parameter<64> action(command, "DirectStreaming");
    printf("miracast_dev_exec_action \n");
    if (action.empty()) return kBadParameter;
    const Parameter<64> codecProfile(command, "CodecProfile");
    if (action.is("Start")) return startDirectStreaming(codecProfile);
    if (action.is("Stop")) {
        printf("Stop direct streaming \n");
        runShellCommand(kKeyBack);
        return kDone;
    }
    return kBadParameter;
}

int sta_generate_event(const char* command) {
    const Parameter<32> type(command, "Type");
    const Parameter<32> event(command, "UIBCEventType");
    printf("UIBCEventType is: %s\n", event.text());
    if (!event.found()) {
        if (strcmp(type.text(), "IdrReq") == 0) return requestIdr();
        printf("Unknown EventType!!!\n");
        return 2;
    }
    if (wfd_device_type == 0) setUpUibc();
    if (isOneOf(event.text(), {"Mouse", "MOUSE"})) {
        printf("Calling MOUSE SendUIBCEvent val=1\n");
        cmd_generate_UIBCEvent(kUibcMouse);
    } else if (isOneOf(event.text(), {"KeyBoard", "KEYBOARD", "Keyboard"})) {
        printf("Calling KEYBOARD SendUIBCEvent val=0\n");
        cmd_generate_UIBCEvent(type.is("UIBC_HID") ? kUibcHidKeyboard : kUibcKeyboard);
    }
    return 0;
}
