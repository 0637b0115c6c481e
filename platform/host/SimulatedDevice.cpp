#include "host/SimulatedDevice.h"

namespace hostplatform {

SimulatedDevice& device() {
    static auto* const device = new SimulatedDevice;
    return *device;
}

void SimulatedDevice::reset() {
    mCore.faults.reset();
    mCore.clock.reset();
    mCore.log.reset();
    mSession.reset();
    mCompositor.reset();
    mProperties.reset();
}

}  // namespace hostplatform
