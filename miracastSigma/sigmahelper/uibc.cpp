#include "uibc.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "osal/osal.h"
#include "shell_command.h"
#include "sigma_log.h"

Undestroyed<android::Mutex> mLock;
Undestroyed<std::list<uibcInfo>> myList;

namespace {

constexpr uint32_t kTakeOldest = 0;
constexpr uint32_t kAppend = 1;

constexpr uint32_t kTouchEvent = 0;
constexpr uint32_t kKeyEvent = 1;
constexpr uint32_t kDown = 0;
constexpr uint32_t kUp = 1;

// Set once the worker runs. The thread that clears it joins or detaches the worker.
std::atomic<bool> workerJoinable{false};
// Set by exit(), read by every thread that touches the queue.
std::atomic<bool> processEnds{false};

void endInput() {
    processEnds = true;
    if (workerJoinable.exchange(false)) pthread_detach(uibc_worker_handle);
    // Do not wait for the lock: a shell tool may hang while it is held.
    if (mLock->tryLock() == 0) {
        myList->clear();
        mLock->unlock();
    }
}

struct AtUnload {
    ~AtUnload() { endInput(); }
} atUnload;

// False without memory.
SIGMA_REQUIRES(*mLock) bool append(const uibcInfo& info) {
    // Test for a node's memory first, since push_back cannot report a lack of memory. This thread's
    // next allocation of that size gets the freed block.
    void* const node = ::operator new(sizeof info + 2 * sizeof(void*), std::nothrow);
    if (node == nullptr) {
        SIGMA_LOG("UIBC[Src]No memory for the event\n");
        return false;
    }
    ::operator delete(node);
    myList->push_back(info);
    return true;
}

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

// Taps at two fixed positions: tests check that the device reacts, not where.
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

// The lock is held during the shell command, so a producer may wait that long.
SIGMA_REQUIRES(*mLock) void injectOldest() {
    if (myList->empty()) return;
    const uibcInfo info = myList->front();
    myList->pop_front();
    uint32_t action = 0;
    uint16_t keysym = 0;
    memcpy(&action, info.params, sizeof action);
    memcpy(&keysym, info.params + 4, sizeof keysym);

    SIGMA_LOG("UIBC[Src]Process UIBC event. Pending events[%d]\n",
              static_cast<int>(myList->size()));
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
    } while (uibc_complete_flag != 1 && !processEnds);
    SIGMA_LOG("UIBC[Src]Exiting worker thread loop\n");
    return nullptr;
}

struct Key {
    unsigned int keysym;
    int keycode;
};

// Key codes of android.view.KeyEvent for keys other than digits and letters.
constexpr Key kKeys[] = {
    {'\b', 67},  // DEL
    {'\t', 61},  // TAB
    {'\r', 66},  // ENTER
    {27, 111},   // ESCAPE
    {' ', 62},   // SPACE
    {'!', 8},    // 1
    {'#', 18},   // POUND
    {'$', 11},   // 4
    {'%', 12},   // 5
    {'&', 14},   // 7
    {'(', 162},  // NUMPAD_LEFT_PAREN
    {')', 163},  // NUMPAD_RIGHT_PAREN
    {'*', 17},   // STAR
    {',', 55},   // COMMA
    {'.', 56},   // PERIOD
    {'/', 76},   // SLASH
    {'@', 77},   // AT
    {'^', 13},   // 6
    {127, 112},  // FORWARD_DEL
};
constexpr int kKeycodeUnknown = 0;
constexpr int kKeycode0 = 7;
constexpr int kKeycodeA = 29;

}  // namespace

bool injectEvent(WFD_uibc_event_t* event, const void* /*data*/, _jobject* const& /*obj1*/,
                 _jobject* const& /*obj2*/) noexcept {
    if (event == nullptr) {
        SIGMA_LOG("UIBC[Src] Invalid argument\n");
        return false;
    }
    uibcItem item{kAppend, {event->type, {}}};
    static_assert(sizeof item.info.params == sizeof event->params);
    memcpy(item.info.params, event->params, sizeof item.info.params);
    return manipulateList(item) == 0;
}

int manipulateList(uibcItem item) noexcept {
    const android::Mutex::Autolock lock(*mLock);
    if (processEnds) return -1;
    if (item.op == kAppend) return append(item.info) ? 0 : -1;
    if (item.op == kTakeOldest) injectOldest();
    return 0;
}

int keysym2keycode(unsigned int keysym) noexcept {
    if (keysym >= '0' && keysym <= '9') return static_cast<int>(keysym - '0') + kKeycode0;
    const unsigned int upper = keysym & ~0x20U;
    if (upper >= 'A' && upper <= 'Z') return static_cast<int>(upper - 'A') + kKeycodeA;
    for (const Key& key : kKeys) {
        if (key.keysym == keysym) return key.keycode;
    }
    return kKeycodeUnknown;
}

void flushUIBCList() noexcept {
    const android::Mutex::Autolock lock(*mLock);
    SIGMA_LOG("Flushing UIBC event list\n");
    myList->clear();
}

int setUpUibc() noexcept {
    if (uibc_setup_done != 0) {
        SIGMA_LOG("UIBC[Src]Prepare for next event\n");
        flushUIBCList();
        osal_sleep_ms(1000);
        return 0;
    }
    // Exit handlers run in reverse order: this one runs before those that the agent has registered
    // until now.
    atexit(endInput);
    SIGMA_LOG("UIBC[Src]Create UIBC worker thread to process events\n");
    const int error = pthread_create(&uibc_worker_handle, nullptr, uibc_worker, nullptr);
    if (error != 0) {
        SIGMA_LOG("Worker thread creation failed res = %d\n", error);
    } else {
        SIGMA_LOG("Worker thread created!\n");
        workerJoinable = true;
    }
    // Set last: publishes the handle and workerJoinable to the session event handler.
    uibc_setup_done = 1;
    return 0;
}

void terminate_uibc_worker() noexcept {
    SIGMA_LOG("UIBC[Src]Notify worker thread to exit\n");
    uibc_complete_flag = 1;
}

void joinUibcWorker() {
    if (workerJoinable.exchange(false)) pthread_join(uibc_worker_handle, nullptr);
}

int cmd_generate_UIBCEvent(int kind) noexcept {
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
