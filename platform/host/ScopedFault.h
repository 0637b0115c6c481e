#pragma once

#include "host/SimulatedDevice.h"

namespace hostplatform {

// Sets a fault for the length of a scope.
class ScopedFault {
 public:
    explicit ScopedFault(Fault fault, int status = -1) : mFault(fault) {
        device().faults().set(fault, status);
    }
    ~ScopedFault() { device().faults().set(mFault, 0); }
    ScopedFault(const ScopedFault&) = delete;
    ScopedFault& operator=(const ScopedFault&) = delete;

 private:
    const Fault mFault;
};

}  // namespace hostplatform
