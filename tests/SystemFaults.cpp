#include "SystemFaults.h"

#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

namespace {

struct Plan {
    std::atomic<int> error{0};
    std::atomic<int> pass{0};
    std::atomic<int> left{0};
    std::atomic<bool> met{false};
};
std::array<Plan, static_cast<size_t>(SystemCall::Count)> plans{};

Plan& planOf(SystemCall call) { return plans.at(static_cast<size_t>(call)); }

bool fails(SystemCall call) {
    Plan& plan = planOf(call);
    if (plan.left <= 0 || plan.pass-- > 0 || plan.left-- <= 0) return false;
    plan.met = true;
    errno = plan.error;
    return true;
}

}  // namespace

SystemFault::SystemFault(SystemCall call, int error, int count, int after) : mCall(call) {
    planOf(call).met = false;
    planOf(call).error = error;
    planOf(call).pass = after;
    planOf(call).left = count;
}
SystemFault::~SystemFault() { planOf(mCall).left = 0; }
bool SystemFault::met() const { return planOf(mCall).met; }

// The linker sends the calls here, and their own functions are __real_.
// NOLINTBEGIN(bugprone-reserved-identifier, bugprone-macro-parentheses)
#define FAILING(call, failure, result, name, parameters, arguments)         \
    extern "C" result __real_##name parameters;                             \
    extern "C" result __wrap_##name parameters {                            \
        return fails(SystemCall::call) ? failure : __real_##name arguments; \
    }

FAILING(Socket, -1, int, socket, (int a, int b, int c), (a, b, c))
FAILING(SocketPair, -1, int, socketpair, (int a, int b, int c, int* d), (a, b, c, d))
FAILING(Bind, -1, int, bind, (int a, const sockaddr* b, socklen_t c), (a, b, c))
FAILING(GetSockName, -1, int, getsockname, (int a, sockaddr* b, socklen_t* c), (a, b, c))
FAILING(Listen, -1, int, listen, (int a, int b), (a, b))
FAILING(Accept, -1, int, accept4, (int a, sockaddr* b, socklen_t* c, int d), (a, b, c, d))
FAILING(Read, -1, ssize_t, read, (int a, void* b, size_t c), (a, b, c))
FAILING(Poll, -1, int, poll, (pollfd * a, nfds_t b, int c), (a, b, c))
FAILING(New, nullptr, void*, _ZnwmRKSt9nothrow_t, (size_t a, const std::nothrow_t& b), (a, b))
FAILING(Malloc, nullptr, void*, malloc, (size_t a), (a))
FAILING(Realloc, nullptr, void*, realloc, (void* a, size_t b), (a, b))

extern "C" int __real_ioctl(int file, unsigned long request, ...);
extern "C" int __wrap_ioctl(int file, unsigned long request, ifreq* interface) {
    if (request == SIOCGIFADDR && strcmp(interface->ifr_name, "wlan0") == 0) {
        strcpy(interface->ifr_name, "lo");
    }
    return __real_ioctl(file, request, interface);
}
// NOLINTEND(bugprone-reserved-identifier, bugprone-macro-parentheses)
