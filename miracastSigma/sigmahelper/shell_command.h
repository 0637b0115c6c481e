#pragma once

// Runs one of the device's shell tools and waits for it. Its exit status tells nothing that a
// command could report, so it is not looked at. On the caller's thread.
void runShellCommand(const char* command);
