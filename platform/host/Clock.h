// Device time: what the platform's sleep and clock run on.
#pragma once

#include <chrono>
#include <cstdint>

namespace hostplatform {

// Device time passes `scale` times as fast as real time (at first 1). Scale > 0. A sleep in
// progress keeps the scale it began with. Callable on any thread.
void setTimeScale(double scale);
double timeScale();

// Device time in milliseconds since the start of the process; never goes back.
uint64_t deviceMilliseconds();

// The real duration of a span of device time.
std::chrono::nanoseconds realDuration(std::chrono::milliseconds deviceTime);

}  // namespace hostplatform
