#include "Clock.h"

#include <mutex>
#include <thread>

#include "osal/osal.h"

namespace hostplatform {

namespace {

using RealClock = std::chrono::steady_clock;

std::mutex scaleMutex;  // guards the three below
double scale = 1.0;
RealClock::time_point scaleSetAt = RealClock::now();
double deviceMsAtThatTime = 0;

double deviceMsNow() {
    const std::chrono::duration<double, std::milli> real = RealClock::now() - scaleSetAt;
    return deviceMsAtThatTime + real.count() * scale;
}

}  // namespace

void setTimeScale(double newScale) {
    const std::lock_guard lock(scaleMutex);
    deviceMsAtThatTime = deviceMsNow();
    scaleSetAt = RealClock::now();
    scale = newScale;
}

double timeScale() {
    const std::lock_guard lock(scaleMutex);
    return scale;
}

uint64_t deviceMilliseconds() {
    const std::lock_guard lock(scaleMutex);
    return static_cast<uint64_t>(deviceMsNow());
}

std::chrono::nanoseconds realDuration(std::chrono::milliseconds deviceTime) {
    const std::chrono::duration<double, std::milli> real(static_cast<double>(deviceTime.count()) /
                                                         timeScale());
    return std::chrono::ceil<std::chrono::nanoseconds>(real);
}

}  // namespace hostplatform

void osal_sleep_ms(uint32_t milliseconds) {
    std::this_thread::sleep_for(
        hostplatform::realDuration(std::chrono::milliseconds(milliseconds)));
}

uint64_t osal_clock_ms(void) { return hostplatform::deviceMilliseconds(); }
