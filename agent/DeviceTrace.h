// What the simulated device was made to do, for people to read.
#pragma once

#include <chrono>
#include <cstdint>

namespace agent {

// Waits until the simulated device has reported everything and then does nothing for a moment, each
// at most `timeout` of real time; false on timeout. Callable on any thread.
bool waitDeviceAtRest(std::chrono::milliseconds timeout);

// Prints the simulated device's journal on standard output, indented, without the log lines and
// without the commands, under which it stands. Not for use by several threads at once.
class DeviceTrace {
 public:
    // Prints what was added since the last call.
    void print();

 private:
    uint64_t mNext = 0;
};

}  // namespace agent
