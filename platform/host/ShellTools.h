// The device's shell tools, `input` and `am`: programs that tell this process's journal what they
// were asked.
#pragma once

#include <string>

namespace hostplatform {

// Puts `directory`, which holds the tools, first on PATH and lets them reach this process's journal
// through a local socket, served by a thread of its own. To be called once, before other threads
// read the environment. False, with errno, when the socket or the thread cannot be made.
bool installShellTools(const std::string& directory);

// The directory of the tools beside this library's own file, where the build puts them.
std::string shellToolsDirectory();

}  // namespace hostplatform
