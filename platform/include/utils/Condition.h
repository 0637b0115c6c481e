// android::Condition: a condition variable for an android::Mutex.
#pragma once

#include <pthread.h>
#include <time.h>

#include <cstdint>

#include "utils/Errors.h"
#include "utils/Mutex.h"

namespace android {

class Condition {
 public:
    Condition() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&mCondition, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~Condition() { pthread_cond_destroy(&mCondition); }
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    // Waits for a signal. The caller holds the mutex. May return without a signal.
    status_t wait(Mutex& mutex) { return -pthread_cond_wait(&mCondition, &mutex.mMutex); }
    // Like wait, but returns -ETIMEDOUT after that many nanoseconds.
    status_t waitRelative(Mutex& mutex, int64_t nanoseconds) {
        constexpr int64_t kSecond = 1'000'000'000;
        timespec end{};
        clock_gettime(CLOCK_MONOTONIC, &end);
        const int64_t fraction = end.tv_nsec + nanoseconds % kSecond;
        end.tv_sec += nanoseconds / kSecond + fraction / kSecond;
        end.tv_nsec = fraction % kSecond;
        return -pthread_cond_timedwait(&mCondition, &mutex.mMutex, &end);
    }
    void signal() { pthread_cond_signal(&mCondition); }
    void broadcast() { pthread_cond_broadcast(&mCondition); }

 private:
    pthread_cond_t mCondition;
};

}  // namespace android
