// Threads for the simulated device itself.
#pragma once

#include <functional>

namespace hostplatform {

// Runs `body` on a new detached thread. Sets the stack size, so that the thread starts even while
// Fault::ThreadCreation is set. Returns 0 or an error number.
int startSmallThread(std::function<void()> body);

}  // namespace hostplatform
