#include "host/properties/Properties.h"

#include "cutils/properties.h"

namespace hostplatform {

namespace {

constexpr const char* kMdnsState = "init.svc.mdnsd";

}  // namespace

void Properties::simulateMdns(bool simulated, int reads) {
    const Lock lock(mMutex);
    if (simulated && !mSimulated) mValues[kMdnsState] = "stopped";
    mSimulated = simulated;
    mReads = reads;
    mNextState.clear();
}

std::string Properties::get(const std::string& key) {
    if (mCore.faults.next(Fault::PropertyService) != 0) return "";
    Lock lock(mMutex);
    if (key == kMdnsState && !mSimulated) {
        lock.unlock();
        return mMdns.ask() == MdnsService::Answer::Running ? "running" : "stopped";
    }
    if (key == kMdnsState && !mNextState.empty() && mReadsLeft-- == 0) {
        mValues[key] = std::exchange(mNextState, "");
    }
    const auto found = mValues.find(key);
    return found == mValues.end() ? "" : found->second;
}

int Properties::set(const std::string& key, const std::string& value) {
    mCore.journal.add("property", key + " = \"" + value + "\"");
    if (const int fault = mCore.faults.next(Fault::PropertyService)) return fault;
    if (key == "ctl.start" || key == "ctl.stop") return control(key == "ctl.start", value);
    const Lock lock(mMutex);
    const bool readOnly = key == kMdnsState && !mSimulated;
    if (key.empty() || value.size() >= PROPERTY_VALUE_MAX || readOnly) return -1;
    mValues[key] = value;
    return 0;
}

int Properties::control(bool start, const std::string& service) {
    if (service != "mdnsd") {
        mCore.log.complain("there is no init service \"" + service + '"');
        return -1;
    }
    Lock lock(mMutex);
    if (mSimulated) {
        mNextState = start ? "running" : "stopped";
        mReadsLeft = mReads;
        return 0;
    }
    lock.unlock();  // the daemon may take seconds
    start ? mMdns.start() : mMdns.stop();
    return 0;
}

}  // namespace hostplatform
