// The output of a child process, line by line.
#pragma once

#include <functional>
#include <string>

#include "UniqueFd.h"

namespace hostplatform {

// Calls `onLine` with every line that is read from `input`, without its end, on a thread of its
// own, which ends with the input. When no thread can be started, the input is closed. (A stdio
// stream would be no good here: fflush(nullptr) anywhere waits for the thread that reads one.)
void relayLines(UniqueFd input, std::function<void(const std::string&)> onLine);

}  // namespace hostplatform
