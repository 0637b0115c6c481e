// What a benchmark's own thread and the thread that it measures tell each other.
#pragma once

#include <sched.h>
#include <semaphore.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>

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

// Counts results, notes when the last one arrived, and can keep the thread that brings them.
//
// The benchmark's thread gives a number to wait for before it causes the first result; everything
// but mLeft is ordered by that result and by the semaphores.
class Arrivals {
 public:
    using Clock = std::chrono::steady_clock;

    // On the measured thread.
    void arrived();

    // On the benchmark's thread.
    void expect(int count) { mLeft = count; }
    // When the last of the expected results arrived.
    Clock::time_point wait();
    // Keeps the measured thread in its next result, which is not counted.
    void hold() { mHold = true; }
    void waitHeld() { mHeld.wait(); }
    void release() { mReleased.post(); }
    // Waits until the measured thread, which has brought a result before, sleeps.
    void waitAsleep() const;
    pid_t thread() const { return mThread; }

 private:
    std::atomic<int> mLeft{0};
    std::atomic<bool> mHold{false};
    Clock::time_point mLast;
    pid_t mThread = 0;
    Semaphore mAll;
    Semaphore mHeld;
    Semaphore mReleased;
};

// For the length of a scope, keeps the calling thread and another one on a CPU each, if there are
// two: whether the scheduler puts them together makes a difference of a factor of two between runs.
class Apart {
 public:
    explicit Apart(pid_t thread);
    ~Apart();
    Apart(const Apart&) = delete;
    Apart& operator=(const Apart&) = delete;

 private:
    const pid_t mThread;
    cpu_set_t mAll;
};

inline double seconds(Arrivals::Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}
