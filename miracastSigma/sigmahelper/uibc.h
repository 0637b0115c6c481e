// The user input back channel (UIBC): input events that a sink sends are queued and replayed on
// this device by a worker thread, one per second, through the shell tool "input".
//
// Threads. Any thread may call; injectEvent is called on the session client's threads, setUpUibc on
// the command thread, and the worker is ended on the session client's thread. myList is touched
// only with mLock held. The worker is started at most once in a process; nothing resets
// uibc_setup_done or uibc_complete_flag.
#pragma once

#include <cstdint>
#include <list>

#include "miracast_sigma.h"
#include "utils/Mutex.h"
#include "wfd/WiFiDisplayClient.h"

// One queued event: the session client's event type and an unchanged copy of its parameters.
struct uibcInfo {
    uint32_t eventType;  // 0 touch, 1 key
    uint8_t params[176];
};

// What manipulateList is asked to do.
struct uibcItem {
    uint32_t op;    // 0: take and inject the oldest event, 1: append `info`; others: nothing
    uibcInfo info;  // for op 1
};
static_assert(sizeof(uibcInfo) == 180 && sizeof(uibcItem) == 184, "seen by other libraries");

// Event kinds of cmd_generate_UIBCEvent.
constexpr int kUibcMouse = 0;
constexpr int kUibcKeyboard = 1;
constexpr int kUibcHidKeyboard = 2;

// The queue, oldest first, and its lock, which is held through an injection.
// C linkage: a C++ library that tags its list's ABI would put the tag into the variable's name.
extern "C" {
extern MIRACAST_SIGMA_EXPORT std::list<uibcInfo> myList;
extern MIRACAST_SIGMA_EXPORT android::Mutex mLock;
}

// The session client's UIBC callback: queues `event`, of which a copy is made. The other arguments
// are not used. False for a null event.
MIRACAST_SIGMA_EXPORT bool injectEvent(WFD_uibc_event_t* event, const void* data,
                                       _jobject* const& obj1, _jobject* const& obj2);

// The one place where the queue is filled and consumed. Returns 0.
MIRACAST_SIGMA_EXPORT int manipulateList(uibcItem item);

// The Android key code (KeyEvent.KEYCODE_*) of a character code; 0 for one without a key.
MIRACAST_SIGMA_EXPORT int keysym2keycode(unsigned int keysym);

// Empties the queue.
MIRACAST_SIGMA_EXPORT void flushUIBCList();

// Tells the worker to end, after at most one more event; does not wait.
MIRACAST_SIGMA_EXPORT void terminate_uibc_worker();

// Waits for the worker to end. Does nothing when none was created or it has been waited for.
void joinUibcWorker();
