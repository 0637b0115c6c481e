// The property service of the simulated device.
//
// Properties stay until the process ends. Every property_set adds an entry to the journal's
// component "property". The device has one init service, "mdnsd":
//   - every read of "init.svc.mdnsd" asks the bus for a daemon, so it also notices a daemon that
//     another process has started, and one that has died;
//   - "ctl.start" starts a daemon if none answers; it ends with this process at the latest;
//   - "ctl.stop" ends the daemon that this process started, never another one.
// Both add an entry to the journal; if they fail, Log::complain reports why. The daemon's output
// goes to the device's log with the tag "mdnsd".
#pragma once

#include <map>
#include <string>
#include <utility>

#include "host/DeviceCore.h"
#include "host/Mutex.h"
#include "host/properties/MdnsService.h"

namespace hostplatform {

// Any thread may call.
class Properties {
 public:
    explicit Properties(DeviceCore& core) : mCore(core), mMdns(core) {}

    // Simulates the service without a daemon: "init.svc.mdnsd" is an ordinary property (initially
    // "stopped"), which "ctl.start" and "ctl.stop" change to "running" and "stopped" after `reads`
    // further reads.
    void simulateMdns(bool simulated, int reads = 0);

    // Like property_get and property_set.
    std::string get(const std::string& key);
    int set(const std::string& key, const std::string& value);

    // Restores the real mDNS daemon.
    void reset() { simulateMdns(false); }

 private:
    int control(bool start, const std::string& service);

    DeviceCore& mCore;
    MdnsService mMdns;
    Mutex mMutex;
    std::map<std::string, std::string> mValues GUARDED_BY(mMutex);
    bool mSimulated GUARDED_BY(mMutex) = false;
    int mReads GUARDED_BY(mMutex) = 0;          // reads of "init.svc.mdnsd" until it changes
    int mReadsLeft GUARDED_BY(mMutex) = 0;      // until the pending change
    std::string mNextState GUARDED_BY(mMutex);  // of the pending change; empty if there is none
};

}  // namespace hostplatform
