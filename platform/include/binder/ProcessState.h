#pragma once

#include "utils/RefBase.h"

namespace android {

// The process's binder state; one per process.
class ProcessState : public virtual RefBase {
 public:
    static sp<ProcessState> self();

    // Starts the threads through which services call back into this process. Harmless if they run
    // already.
    void startThreadPool();
};

}  // namespace android
