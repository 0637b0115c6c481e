// android::Mutex: a plain, non-recursive mutex with a scoped lock.
#pragma once

#include <pthread.h>

#include "utils/Errors.h"

namespace android {

class Mutex {
 public:
    Mutex() { pthread_mutex_init(&mMutex, nullptr); }
    ~Mutex() { pthread_mutex_destroy(&mMutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    status_t lock() { return -pthread_mutex_lock(&mMutex); }
    void unlock() { pthread_mutex_unlock(&mMutex); }

    class Autolock {
     public:
        explicit Autolock(Mutex& mutex) : mLock(mutex) { mLock.lock(); }
        ~Autolock() { mLock.unlock(); }
        Autolock(const Autolock&) = delete;
        Autolock& operator=(const Autolock&) = delete;

     private:
        Mutex& mLock;
    };

 private:
    pthread_mutex_t mMutex;
};

}  // namespace android
