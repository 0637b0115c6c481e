// The platform's mDNS daemon for tests on the fake DNS-SD client library: a property service whose
// daemon starts and stops at once. Linked into a test's executable.
#include <atomic>
#include <cstring>
#include <string>

#include "Faults.h"
#include "Journal.h"
#include "cutils/properties.h"

namespace {

std::atomic<bool> running{false};

bool silent() { return hostplatform::faultStatus(hostplatform::Fault::PropertyService) != 0; }

}  // namespace

int property_get(const char* /*key*/, char* value, const char* /*default_value*/) {
    const std::string state = silent() ? "" : running ? "running" : "stopped";
    memcpy(value, state.c_str(), state.size() + 1);
    return static_cast<int>(state.size());
}

int property_set(const char* key, const char* value) {
    hostplatform::Journal::instance().add("property", std::string(key) + " = " + value);
    if (!silent()) running = strcmp(key, "ctl.start") == 0;
    return 0;
}
