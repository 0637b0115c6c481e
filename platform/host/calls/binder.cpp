#include <atomic>

#include "binder/ProcessState.h"
#include "host/SimulatedDevice.h"

namespace android {

sp<ProcessState> ProcessState::self() {
    static const auto* const state = new sp<ProcessState>(new ProcessState);
    return *state;
}

void ProcessState::startThreadPool() {
    static std::atomic<bool> started{false};
    hostplatform::device().journal().add(
        "binder", started.exchange(true) ? "thread pool runs already" : "thread pool started");
}

}  // namespace android
