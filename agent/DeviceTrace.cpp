#include "DeviceTrace.h"

#include <cstdio>

#include "Journal.h"
#include "SessionService.h"
#include "Text.h"

namespace agent {

bool waitDeviceAtRest(std::chrono::milliseconds timeout) {
    // Workers of the library are not reports: what they still do shows only in the journal.
    constexpr std::chrono::milliseconds kQuiet{80};
    return hostplatform::waitReported(timeout) &&
           hostplatform::Journal::instance().waitQuiet(kQuiet, timeout);
}

void DeviceTrace::print() {
    for (const auto& entry : hostplatform::Journal::instance().entries(mNext)) {
        mNext = entry.sequence + 1;
        if (entry.component == "log" || entry.component == "capi") continue;
        std::printf("    %-10s %s\n", entry.component.c_str(), printable(entry.text, 1000).c_str());
    }
}

}  // namespace agent
