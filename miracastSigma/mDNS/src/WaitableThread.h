#pragma once

#include <cerrno>
#include <memory>
#include <new>

#include "detached_thread.h"
#include "thread_annotations.h"
#include "utils/Condition.h"
#include "utils/Mutex.h"

// A detached thread with a wait(). Unlike a joinable thread it leaves no resources behind when it
// ends and nobody waits for it. Delete the object only after wait().
class WaitableThread {
 public:
    // Runs `body` with `argument`. Without memory or a thread returns null and sets *error.
    static WaitableThread* start(void (*body)(void*), void* argument, int* error) {
        std::unique_ptr<WaitableThread> thread(new (std::nothrow) WaitableThread(body, argument));
        *error = thread == nullptr ? ENOMEM : startDetachedThread(run, thread.get());
        return *error == 0 ? thread.release() : nullptr;
    }
    WaitableThread(const WaitableThread&) = delete;
    WaitableThread& operator=(const WaitableThread&) = delete;

    // Waits until the body has returned.
    void wait() {
        const android::Mutex::Autolock lock(mLock);
        while (!mEnded) mEnd.wait(mLock);
    }

 private:
    WaitableThread(void (*body)(void*), void* argument) : mBody(body), mArgument(argument) {}

    static void* run(void* self) {
        auto* const thread = static_cast<WaitableThread*>(self);
        thread->mBody(thread->mArgument);
        // Signal with the lock held: once it is released, the object may be deleted.
        const android::Mutex::Autolock lock(thread->mLock);
        thread->mEnded = true;
        thread->mEnd.broadcast();
        return nullptr;
    }

    void (*const mBody)(void*);
    void* const mArgument;
    android::Mutex mLock;
    android::Condition mEnd;
    bool mEnded SIGMA_GUARDED_BY(mLock) = false;
};
