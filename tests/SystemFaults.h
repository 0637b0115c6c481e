// System calls that fail on demand: those of the objects in a test's executable, the library's
// among them, once it is linked with fail_system_calls() of the tests' CMakeLists.txt. Shared
// libraries are not concerned. Callable on any thread.
#pragma once

#include <climits>

enum class SystemCall {
    Socket,
    SocketPair,
    Bind,
    GetSockName,
    Listen,
    Accept,
    Connect,
    Send,
    Read,
    Poll,
    ThreadCreation,
    ReservedNew,  // new (std::nothrow)
    Malloc,
    Calloc,
    Realloc,
    Shell,  // system
};
constexpr int kSystemCallCount = 16;

// How many of these calls have been made to fail since the start of the process.
int failedCalls(SystemCall call);

// For the length of a scope the next `count` calls fail with that error and do nothing. One for a
// call at a time.
class ScopedSystemFault {
 public:
    explicit ScopedSystemFault(SystemCall call, int error, int count = INT_MAX);
    ~ScopedSystemFault();
    ScopedSystemFault(const ScopedSystemFault&) = delete;
    ScopedSystemFault& operator=(const ScopedSystemFault&) = delete;

    // Whether no call is left to fail.
    bool used() const;

 private:
    const SystemCall mCall;
};
