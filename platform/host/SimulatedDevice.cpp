#include "SimulatedDevice.h"

#include "Clock.h"
#include "Compositor.h"
#include "Faults.h"
#include "SessionService.h"

namespace hostplatform {

void resetSwitches() {
    clearFaults();
    setTimeScale(1.0);
    setPeer(Peer::Answers);
    setStream(1280, 720, false);
    Compositor::instance().setInternalDisplay({1080, 1920}, android::ui::Rotation::Rotation0);
}

}  // namespace hostplatform
