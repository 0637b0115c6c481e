// The objects that every part of the simulated device uses.
#pragma once

#include "host/Clock.h"
#include "host/Faults.h"
#include "host/Journal.h"
#include "host/Log.h"

namespace hostplatform {

struct DeviceCore {
    Journal journal;
    Log log{journal};
    Clock clock{journal};
    Faults faults;
};

}  // namespace hostplatform
