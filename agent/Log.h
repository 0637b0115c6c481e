// The agent's own log.
#pragma once

#include <string>

namespace agent {

// Writes "capi-agent: " and `line` as one line on standard error. What came from outside goes
// through printable() first. Callable on any thread.
void logLine(const std::string& line);

}  // namespace agent
