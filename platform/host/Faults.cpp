#include "host/Faults.h"

#include <pthread.h>

namespace hostplatform {

namespace {

// A thread without a stack size of its own gets the default size. The kernel refuses a size beyond
// the address space with EAGAIN, the same error as on a device without memory.
void setThreadsFail(bool fail) {
    static size_t usualSize = 0;
    pthread_attr_t attributes;
    if (pthread_getattr_default_np(&attributes) != 0) return;
    if (usualSize == 0) pthread_attr_getstacksize(&attributes, &usualSize);
    pthread_attr_setstacksize(&attributes, fail ? size_t{1} << 47 : usualSize);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

}  // namespace

void Faults::set(Fault fault, int status, int times) {
    const Lock lock(mMutex);
    mPlans[fault].status = status;
    mPlans[fault].times = times;
    if (fault == Fault::ThreadCreation) setThreadsFail(status != 0);
}

void Faults::hold(Fault fault) {
    const Lock lock(mMutex);
    mPlans[fault].held = true;
}

void Faults::release(Fault fault) {
    const Lock lock(mMutex);
    mPlans[fault].held = false;
    mChanged.notify_all();
}

bool Faults::waitHeld(Fault fault, std::chrono::milliseconds timeout) {
    Lock lock(mMutex);
    return mChanged.wait_for(lock, timeout,
                             [&]() REQUIRES(mMutex) { return mPlans[fault].waiting > 0; });
}

int Faults::next(Fault fault) {
    Lock lock(mMutex);
    Plan& plan = mPlans[fault];
    ++plan.waiting;
    if (plan.held) mChanged.notify_all();
    mChanged.wait(lock, [&] { return !plan.held; });
    --plan.waiting;
    if (plan.times == 0) return 0;
    if (plan.times > 0) --plan.times;
    return plan.status;
}

void Faults::reset() {
    const Lock lock(mMutex);
    for (auto& [fault, plan] : mPlans) {
        plan.status = 0;
        plan.held = false;
    }
    setThreadsFail(false);
    mChanged.notify_all();
}

}  // namespace hostplatform
