// The R2 discovery procedures as the blocking steps of the commands; miracast_sigma.h declares
// them.
#pragma once

#include <string>

// The name in instanceName, as it is now. On any thread.
std::string registeredInstanceName();
