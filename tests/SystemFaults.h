// System calls that fail on demand: those of the program's own objects, the library's among them.
// Shared libraries are not concerned. Callable on any thread. Threads that cannot be started are
// the simulated device's Fault::ThreadCreation. The interface "wlan0" has the address of "lo".
#pragma once

#include <climits>

enum class SystemCall {
    // clang-format off
    Socket, SocketPair, Bind, GetSockName, Listen, Accept, Read, Poll,
    New,  // new (std::nothrow)
    Malloc, Realloc,
    Count,
    // clang-format on
};

// While it lives, `count` of these calls fail with that error and do nothing, after the first
// `after` of them. One for a call at a time.
class SystemFault {
 public:
    SystemFault(SystemCall call, int error, int count = INT_MAX, int after = 0);
    ~SystemFault();
    SystemFault(const SystemFault&) = delete;
    bool met() const;  // whether a call has failed

 private:
    const SystemCall mCall;
};
