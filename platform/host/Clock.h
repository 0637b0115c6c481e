// Device time, which the platform's sleep and clock use.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "host/Journal.h"
#include "host/Mutex.h"

namespace hostplatform {

// Any thread may call.
class Clock {
 public:
    explicit Clock(Journal& journal) : mJournal(journal) {}

    // From now on device time passes `scale` times as fast as real time (initially 1). Scale > 0. A
    // running sleep keeps its scale.
    void setScale(double scale);

    // Until the next setScale() device time passes only in sleeps. A sleep advances device time by
    // its length and takes no real time except a yield. Each adds its milliseconds to the journal
    // as component "sleep".
    void setManual() { setScale(0); }

    // Calls `hook` with the milliseconds of every further sleep, at its start and on its thread. An
    // empty function removes the hook.
    void onSleep(std::function<void(uint32_t milliseconds)> hook);

    // Returns the device time in milliseconds since the start of the process; never decreases.
    uint64_t milliseconds() const;

    void sleep(uint32_t milliseconds);

    void reset();

 private:
    using RealClock = std::chrono::steady_clock;

    double now() const REQUIRES(mMutex);

    Journal& mJournal;
    mutable Mutex mMutex;
    double mScale GUARDED_BY(mMutex) = 1;  // 0: device time passes in sleeps only
    RealClock::time_point mSetAt GUARDED_BY(mMutex) = RealClock::now();
    double mMillisecondsThen GUARDED_BY(mMutex) = 0;  // device time at mSetAt
    std::function<void(uint32_t)> mOnSleep GUARDED_BY(mMutex);
};

}  // namespace hostplatform
