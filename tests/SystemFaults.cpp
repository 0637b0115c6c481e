#include "SystemFaults.h"

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <new>

namespace {

struct Plan {
    std::atomic<int> error{0};
    std::atomic<int> left{0};
    std::atomic<int> failed{0};
};
std::array<Plan, kSystemCallCount> plans{};

Plan& planOf(SystemCall call) { return plans.at(static_cast<size_t>(call)); }

// Whether this call is to fail; errno says how, then.
bool fails(SystemCall call) {
    Plan& plan = planOf(call);
    int left = plan.left;
    while (left > 0 && !plan.left.compare_exchange_weak(left, left - 1)) {
    }
    if (left <= 0) return false;
    ++plan.failed;
    errno = plan.error;
    return true;
}

}  // namespace

int failedCalls(SystemCall call) { return planOf(call).failed; }

ScopedSystemFault::ScopedSystemFault(SystemCall call, int error, int count) : mCall(call) {
    planOf(call).error = error;
    planOf(call).left = count;
}

ScopedSystemFault::~ScopedSystemFault() { planOf(mCall).left = 0; }

bool ScopedSystemFault::used() const { return planOf(mCall).left == 0; }

// The linker sends the calls here, and what they are meant for stays there as __real_.
// NOLINTBEGIN(bugprone-reserved-identifier)
#define FAILING(call, result, failure, name, parameters, arguments)                              \
    extern "C" result __real_##name parameters;                                                  \
    extern "C" result __wrap_##name parameters;                                                  \
    extern "C" result __wrap_##name parameters {                                                 \
        return fails(SystemCall::call) ? static_cast<result>(failure) : __real_##name arguments; \
    }

FAILING(Socket, int, -1, socket, (int family, int type, int protocol), (family, type, protocol))
FAILING(SocketPair, int, -1, socketpair, (int family, int type, int protocol, int* ends),
        (family, type, protocol, ends))
FAILING(Bind, int, -1, bind, (int socket, const sockaddr* address, socklen_t size),
        (socket, address, size))
FAILING(GetSockName, int, -1, getsockname, (int socket, sockaddr* address, socklen_t* size),
        (socket, address, size))
FAILING(Listen, int, -1, listen, (int socket, int backlog), (socket, backlog))
FAILING(Accept, int, -1, accept4, (int socket, sockaddr* address, socklen_t* size, int flags),
        (socket, address, size, flags))
FAILING(Connect, int, -1, connect, (int socket, const sockaddr* address, socklen_t size),
        (socket, address, size))
FAILING(Send, ssize_t, -1, send, (int socket, const void* bytes, size_t size, int flags),
        (socket, bytes, size, flags))
FAILING(Read, ssize_t, -1, read, (int descriptor, void* bytes, size_t size),
        (descriptor, bytes, size))
FAILING(Poll, int, -1, poll, (pollfd * entries, nfds_t count, int timeout),
        (entries, count, timeout))
FAILING(ThreadCreation, int, errno, pthread_create,
        (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*),
         void* argument),
        (thread, attributes, body, argument))
FAILING(ReservedNew, void*, nullptr, _ZnwmRKSt9nothrow_t,
        (size_t size, const std::nothrow_t& constant), (size, constant))
FAILING(Malloc, void*, nullptr, malloc, (size_t size), (size))
FAILING(Calloc, void*, nullptr, calloc, (size_t count, size_t size), (count, size))
FAILING(Realloc, void*, nullptr, realloc, (void* memory, size_t size), (memory, size))
FAILING(Shell, int, -1, system, (const char* command), (command))
// NOLINTEND(bugprone-reserved-identifier)
