// The property service of the simulated device, as a test sees it; cutils/properties.h is what the
// library sees.
//
// Properties are kept for the life of the process. Every property_set is an entry of the journal's
// component "property". The device has one init service, "mdnsd", which is an Avahi daemon on the
// system bus in force (DBUS_SYSTEM_BUS_ADDRESS):
//   - "init.svc.mdnsd" asks the bus at every reading, so it also tells of a daemon that this
//   process
//     has not started, or that died;
//   - "ctl.start" starts a daemon when none answers; it ends with this process at the latest;
//   - "ctl.stop" ends the daemon that this process started, never another one.
// Both leave an entry in the journal; what they cannot do is a log line of tag "hostplatform". What
// the started daemon itself logs appears in the device's log under the tag "mdnsd".
#pragma once

#include <string>
#include <vector>

namespace hostplatform {

// The command that "ctl.start" runs for "mdnsd": a program, looked for on PATH and where
// administrators' programs are, and its arguments. At first {"avahi-daemon"}. The program must stay
// in the foreground. Callable on any thread.
void setMdnsCommand(std::vector<std::string> command);

}  // namespace hostplatform
