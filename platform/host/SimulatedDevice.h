// The simulated device, which implements the platform's functions and classes on a workstation.
// Agents and tests control it through this class.
#pragma once

#include "host/Compositor.h"
#include "host/DeviceCore.h"
#include "host/properties/Properties.h"
#include "host/session/SessionService.h"
#include "host/tools/ShellTools.h"

namespace hostplatform {

// Any thread may call any part.
class SimulatedDevice {
 public:
    Journal& journal() { return mCore.journal; }      // what the device was asked to do
    Log& log() { return mCore.log; }                  // the device's log
    Clock& clock() { return mCore.clock; }            // device time
    Faults& faults() { return mCore.faults; }         // calls that fail or hang
    SessionService& session() { return mSession; }    // the session service and the peer
    Compositor& compositor() { return mCompositor; }  // layers and displays
    Properties& properties() { return mProperties; }  // properties and the init service "mdnsd"
    ShellTools& shellTools() { return mShellTools; }  // `input` and `am`

    // Resets every switch: no call fails or is held, the built-in peer answers, the built-in
    // display is 1080 x 1920, device time passes as fast as real time, the log goes to standard
    // error, no hook is set, mdnsd is a real daemon. Layers, displays, sessions, properties and the
    // journal stay.
    void reset();

 private:
    friend SimulatedDevice& device();
    SimulatedDevice() = default;

    DeviceCore mCore;
    SessionService mSession{mCore};
    Compositor mCompositor;
    Properties mProperties{mCore};
    ShellTools mShellTools{mCore.journal};
};

// The one device of the process; never destroyed.
SimulatedDevice& device();

}  // namespace hostplatform
