// The user input back channel (UIBC): input events that a sink sends are queued and replayed on
// this device by a worker thread, one per second, through the shell tool "input".
//
// Threads. Any thread may call; injectEvent is called on the session client's threads, setUpUibc on
// the command thread. The session client's thread ends the worker. The worker is started at most
// once in a process; nothing resets uibc_setup_done or uibc_complete_flag. Once exit() has called
// the handler that setUpUibc registers, no event is queued or injected any more; exit() does not
// wait for a shell tool.
#pragma once

#include <cstdint>
#include <list>

#include "Undestroyed.h"
#include "miracast_sigma.h"
#include "thread_annotations.h"
#include "utils/Mutex.h"
#include "wfd/WiFiDisplayClient.h"

// One queued event: the session client's event type and an unchanged copy of its parameters.
struct uibcInfo {
    uint32_t eventType;  // 0 touch, 1 key
    uint8_t params[176];
};

// One operation of manipulateList.
struct uibcItem {
    uint32_t op;    // 0: take and inject the oldest event, 1: append `info`; others: nothing
    uibcInfo info;  // for op 1
};
static_assert(sizeof(uibcInfo) == 180 && sizeof(uibcItem) == 184, "seen by other libraries");

// Event kinds of cmd_generate_UIBCEvent.
constexpr int kUibcMouse = 0;
constexpr int kUibcKeyboard = 1;
constexpr int kUibcHidKeyboard = 2;

// The queue, oldest first, and its lock, which is held during an injection. In memory they are a
// std::list<uibcInfo> and an android::Mutex. C linkage keeps the ABI tag of a C++ library's list
// out of the variables' names.
extern "C" {
extern MIRACAST_SIGMA_EXPORT Undestroyed<android::Mutex> mLock;
extern MIRACAST_SIGMA_EXPORT Undestroyed<std::list<uibcInfo>> myList SIGMA_GUARDED_BY(*mLock);
}

// The session client's UIBC callback: queues a copy of `event`. The other arguments are not used.
// Returns false for a null event, without memory, and once exit() has called that handler.
MIRACAST_SIGMA_EXPORT bool injectEvent(WFD_uibc_event_t* event, const void* data,
                                       _jobject* const& obj1, _jobject* const& obj2) noexcept;

// Appends an event to the queue, or takes the oldest one and injects it. Returns 0. Returns -1
// without memory for the event (logged) and once exit() has called that handler.
MIRACAST_SIGMA_EXPORT int manipulateList(uibcItem item) noexcept;

// Returns the Android key code (KeyEvent.KEYCODE_*) of a character code; 0 if it has none.
MIRACAST_SIGMA_EXPORT int keysym2keycode(unsigned int keysym) noexcept;

// Empties the queue.
MIRACAST_SIGMA_EXPORT void flushUIBCList() noexcept;

// Tells the worker to end after at most one more event; does not wait for it.
MIRACAST_SIGMA_EXPORT void terminate_uibc_worker() noexcept;

// Waits for the worker to end. Returns at once if there is none or it has been joined.
void joinUibcWorker();
