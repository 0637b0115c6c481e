// Threads of the simulated device itself.
#pragma once

#include <functional>

namespace hostplatform {

// Runs `body` on a new detached thread with a stack size of its own, so that it starts also while
// threads with default attributes are made to fail. Returns 0 or an error number.
int startSmallThread(std::function<void()> body);

}  // namespace hostplatform
