#include <atomic>

#include "Journal.h"
#include "binder/ProcessState.h"

namespace android {

sp<ProcessState> ProcessState::self() {
    static const auto* const state = new sp<ProcessState>(new ProcessState);
    return *state;
}

void ProcessState::startThreadPool() {
    static std::atomic<bool> started{false};
    hostplatform::Journal::instance().add(
        "binder", started.exchange(true) ? "thread pool runs already" : "thread pool started");
}

void RefBase::incStrong(const void*) const { mStrong.fetch_add(1, std::memory_order_relaxed); }

void RefBase::decStrong(const void*) const {
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

}  // namespace android
