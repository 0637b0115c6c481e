// Turns the device's log off for measurements.
#pragma once

namespace hostplatform {

// While set, every message is still formatted, into the 1 KiB that a device's log has for one, but
// goes neither to the journal nor to standard error. On any thread.
void setLogDropped(bool drop);

}  // namespace hostplatform
