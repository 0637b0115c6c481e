// A picture of the run so far: one HTML page that any browser opens, without a network.
#pragma once

#include <string>

namespace agent {

// Writes the page of agent/report.html anew to the file `path`, with all that the journal holds,
// in which device time passes `timeScale` times as fast as the time of the entries. Says on
// standard error why it cannot, and returns false. Callable on any thread.
bool writeReport(const std::string& path, double timeScale);

}  // namespace agent
