#pragma once

#include <functional>
#include <string>

namespace hostplatform {

// Reads the descriptor until its input ends and calls `onLine` with every line, without its end, on
// the calling thread. It uses no stdio stream: fflush(nullptr) on any thread would wait for the
// thread that reads one.
void readLines(int input, const std::function<void(const std::string& line)>& onLine);

}  // namespace hostplatform
