#include "agent/Log.h"

#include <cstdio>

namespace agent {

void logLine(const std::string& line) {
    // In one call, so that lines of different threads do not mix.
    std::fputs(("capi-agent: " + line + "\n").c_str(), stderr);
}

}  // namespace agent
