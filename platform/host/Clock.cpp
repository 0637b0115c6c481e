#include "host/Clock.h"

#include <thread>
#include <utility>

namespace hostplatform {

using RealMilliseconds = std::chrono::duration<double, std::milli>;

double Clock::now() const {
    return mMillisecondsThen + RealMilliseconds(RealClock::now() - mSetAt).count() * mScale;
}

void Clock::setScale(double scale) {
    const Lock lock(mMutex);
    mMillisecondsThen = now();
    mSetAt = RealClock::now();
    mScale = scale;
}

void Clock::onSleep(std::function<void(uint32_t)> hook) {
    const Lock lock(mMutex);
    mOnSleep = std::move(hook);
}

uint64_t Clock::milliseconds() const {
    const Lock lock(mMutex);
    return static_cast<uint64_t>(now());
}

void Clock::sleep(uint32_t milliseconds) {
    Lock lock(mMutex);
    const double scale = mScale;
    const auto hook = mOnSleep;
    lock.unlock();
    if (scale == 0) mJournal.add("sleep", std::to_string(milliseconds));
    if (hook) hook(milliseconds);
    if (scale == 0) {
        lock.lock();
        mMillisecondsThen += milliseconds;
        lock.unlock();
        std::this_thread::yield();
    } else {
        std::this_thread::sleep_for(
            std::chrono::ceil<std::chrono::nanoseconds>(RealMilliseconds(milliseconds / scale)));
    }
}

void Clock::reset() {
    setScale(1);
    onSleep({});
}

}  // namespace hostplatform
