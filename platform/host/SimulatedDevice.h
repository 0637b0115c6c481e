// All switches of the simulated device at once.
#pragma once

namespace hostplatform {

// Puts every switch back to where it was at the start of the process: no faults, the built-in peer
// answering, the built-in display and stream, device time at the speed of real time. Layers,
// displays, sessions and the journal stay as they are.
void resetSwitches();

}  // namespace hostplatform
