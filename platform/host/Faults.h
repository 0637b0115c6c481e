// Switches that make the simulated device fail or hang like a real one.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>

#include "host/Mutex.h"

namespace hostplatform {

enum class Fault {
    CompositorConnection,    // SurfaceComposerClient::initCheck
    NoInternalDisplay,       // getInternalDisplayToken gives null
    DisplayStateQuery,       // getDisplayState
    DisplayConfigQuery,      // getActiveDisplayConfig
    LayerCreation,           // createSurface gives null
    LayerHandle,             // createSurface gives a control that is not valid
    LayerSurface,            // a layer's surface is null
    VirtualDisplayCreation,  // createDisplay gives null
    SessionCreation,         // createWfdSession
    SessionStop,             // stopWfdSession
    SessionControl,          // every other call of the session client
    AudioRouting,            // setDeviceConnectionState
    Allocation,              // osal_calloc gives null
    PropertyService,         // sets, starts and stops nothing; every value is empty
    ThreadCreation,          // threads with default attributes cannot be started
};

// Any thread may call.
class Faults {
 public:
    static constexpr int kEveryTime = -1;

    // Makes the next `times` calls fail, with `status` if they return one; times 0 ends the fault.
    // ThreadCreation ignores `times`: it lasts until `status` 0 is set.
    void set(Fault fault, int status = -1, int times = kEveryTime);

    // Makes the calls of a fault hang before they do anything, until release(). Not for
    // ThreadCreation.
    void hold(Fault fault);
    void release(Fault fault);
    // Waits until a call hangs, at most `timeout` of real time; returns false if none did.
    bool waitHeld(Fault fault, std::chrono::milliseconds timeout = std::chrono::seconds(60));

    // For the platform function of the fault: hangs while the fault is held, then returns the
    // status to fail with, or 0 to work. Counts one of the fault's times. Call it without a lock.
    int next(Fault fault);

    // Ends all faults and releases all calls.
    void reset();

 private:
    struct Plan {
        int status = 0;
        int times = 0;
        bool held = false;
        int waiting = 0;  // calls that hang
    };

    Mutex mMutex;
    std::condition_variable mChanged;
    std::map<Fault, Plan> mPlans GUARDED_BY(mMutex);
};

}  // namespace hostplatform
