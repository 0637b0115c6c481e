// The device's role in a session (wfd_device_type, MIRACAST_SOURCE, ...).
#pragma once

#include "miracast_sigma.h"

// Any number other than MIRACAST_SOURCE means a sink.
inline bool isSource() { return wfd_device_type == MIRACAST_SOURCE; }

// Returns the role opposite to a device type: 1 minus it, also for an unknown number.
inline int counterpartOf(int deviceType) {
    return static_cast<int>(1U - static_cast<unsigned>(deviceType));
}
