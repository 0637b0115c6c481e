#include "Faults.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>

namespace hostplatform {

namespace {

std::array<std::atomic<int>, kFaultCount> statuses{};

// A thread whose attributes name no stack size gets the process's default; with one beyond any
// address space the kernel refuses it (EAGAIN), on the same path as when a device is out of memory.
void setThreadsFail(bool fail) {
    static std::mutex mutex;
    static size_t usualSize = 0;
    const std::lock_guard lock(mutex);
    pthread_attr_t attributes;
    if (pthread_getattr_default_np(&attributes) != 0) return;
    if (usualSize == 0) pthread_attr_getstacksize(&attributes, &usualSize);
    pthread_attr_setstacksize(&attributes, fail ? size_t{1} << 47 : usualSize);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

}  // namespace

void setFault(Fault fault, int status) {
    statuses.at(static_cast<size_t>(fault)) = status;
    if (fault == Fault::ThreadCreation) setThreadsFail(status != 0);
}

int faultStatus(Fault fault) { return statuses.at(static_cast<size_t>(fault)); }

void clearFaults() {
    for (int fault = 0; fault < kFaultCount; ++fault) setFault(static_cast<Fault>(fault), 0);
}

}  // namespace hostplatform
