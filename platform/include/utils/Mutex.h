// android::Mutex: a non-recursive mutex with a scoped lock, annotated for Clang's thread-safety
// analysis.
#pragma once

#include <pthread.h>

#include "utils/Errors.h"

#if defined(__clang__)
#define MUTEX_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define MUTEX_ATTRIBUTE(attribute)
#endif

namespace android {

class Condition;

class MUTEX_ATTRIBUTE(capability("mutex")) Mutex {
 public:
    Mutex() { pthread_mutex_init(&mMutex, nullptr); }
    ~Mutex() { pthread_mutex_destroy(&mMutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    status_t lock() MUTEX_ATTRIBUTE(acquire_capability()) { return -pthread_mutex_lock(&mMutex); }
    void unlock() MUTEX_ATTRIBUTE(release_capability()) { pthread_mutex_unlock(&mMutex); }
    // Returns 0 if it got the lock.
    status_t tryLock() MUTEX_ATTRIBUTE(try_acquire_capability(0)) {
        return -pthread_mutex_trylock(&mMutex);
    }

    class MUTEX_ATTRIBUTE(scoped_lockable) Autolock {
     public:
        explicit Autolock(Mutex& mutex) MUTEX_ATTRIBUTE(acquire_capability(mutex)) : mLock(mutex) {
            mLock.lock();
        }
        ~Autolock() MUTEX_ATTRIBUTE(release_capability()) { mLock.unlock(); }
        Autolock(const Autolock&) = delete;
        Autolock& operator=(const Autolock&) = delete;

     private:
        Mutex& mLock;
    };

 private:
    friend class Condition;

    pthread_mutex_t mMutex;
};

}  // namespace android

#undef MUTEX_ATTRIBUTE
