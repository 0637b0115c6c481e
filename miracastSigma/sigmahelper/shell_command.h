#pragma once

// Runs one of the device's shell tools on the caller's thread and waits for it. Its exit status is
// not examined: no command could report it.
void runShellCommand(const char* command);
