#include "shell_command.h"

#include <cstdlib>

void runShellCommand(const char* command) { [[maybe_unused]] const int status = system(command); }
