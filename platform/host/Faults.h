// Switches that make the simulated device fail as a real one can.
#pragma once

namespace hostplatform {

enum class Fault {
    CompositorConnection,    // SurfaceComposerClient::initCheck
    NoInternalDisplay,       // no display token
    DisplayStateQuery,       // getDisplayState
    DisplayConfigQuery,      // getActiveDisplayConfig
    LayerCreation,           // createSurface gives null
    LayerHandle,             // createSurface gives a control that is not valid
    LayerSurface,            // a layer's surface is null
    VirtualDisplayCreation,  // createDisplay gives null
    SessionClient,           // no session client can be made
    SessionCreation,         // createWfdSession
    SessionControl,          // every other call on the session client
    AudioRouting,            // setDeviceConnectionState
    Allocation,              // osal_calloc gives null
    PropertyService,  // it is silent: nothing is set, started or stopped, every value is empty
    ThreadCreation,   // no thread with default attributes can be started in this process
};
constexpr int kFaultCount = 15;

// Makes the operation fail from now on. `status` is what it returns, where it returns one; 0 ends
// the fault. Callable on any thread.
void setFault(Fault fault, int status = -1);
int faultStatus(Fault fault);
void clearFaults();

// A fault for the length of a scope.
class ScopedFault {
 public:
    explicit ScopedFault(Fault fault, int status = -1) : mFault(fault) { setFault(fault, status); }
    ~ScopedFault() { setFault(mFault, 0); }
    ScopedFault(const ScopedFault&) = delete;
    ScopedFault& operator=(const ScopedFault&) = delete;

 private:
    const Fault mFault;
};

}  // namespace hostplatform
