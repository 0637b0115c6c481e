// Counts what arrives on a measured thread and notes when the last came; can keep that thread.
//
// The benchmark's thread says how many it expects before it causes the first; everything but mLeft
// is ordered by that and by the semaphores.
#pragma once

#include <semaphore.h>

#include <atomic>

#include "compare.h"

class Semaphore {
 public:
    Semaphore() { sem_init(&mSemaphore, 0, 0); }
    ~Semaphore() { sem_destroy(&mSemaphore); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    void post() { sem_post(&mSemaphore); }
    void wait() {
        while (sem_wait(&mSemaphore) != 0) {
        }
    }

 private:
    sem_t mSemaphore;
};

class Arrivals {
 public:
    // On the measured thread.
    void arrived() {
        if (mLeft.fetch_sub(1) != 1) return;
        mLast = Clock::now();
        const bool held = mHold;
        mAll.post();
        if (held) mReleased.wait();
    }

    // With `hold`, the last one keeps the measured thread until release().
    void expect(int count, bool hold = false) {
        mHold = hold;
        mLeft = count;
    }
    // Returns when the last one arrived.
    Clock::time_point wait() {
        mAll.wait();
        return mLast;
    }
    void release() { mReleased.post(); }

 private:
    std::atomic<int> mLeft{0};
    bool mHold = false;
    Clock::time_point mLast;
    Semaphore mAll;
    Semaphore mReleased;
};
