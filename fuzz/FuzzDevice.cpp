#include "FuzzDevice.h"

#include <sys/prctl.h>

#include <cstring>

#include "host/SimulatedDevice.h"

std::vector<char> exactText(const std::string& text) {
    return {text.c_str(), text.c_str() + strlen(text.c_str()) + 1};
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    hostplatform::device().journal().setCapacity(16);
    hostplatform::device().clock().setScale(1e12);
    hostplatform::device().properties().simulateMdns(true);
    prctl(PR_SET_TIMERSLACK, 1);  // or each of the many short waits would last 50 microseconds
    hostplatform::device().session().setPeer(hostplatform::Peer::Silent);
    return 0;
}

extern "C" int __wrap_system(const char* command) {
    require(command != nullptr && strlen(command) < 256);
    return 0;
}
