// The device's shell tools, `input` and `am`: programs (device_tool.cpp) that send their command
// line to this process's journal.
#pragma once

#include "host/Journal.h"

namespace hostplatform {

class ShellTools {
 public:
    explicit ShellTools(Journal& journal) : mJournal(journal) {}

    // Puts the tools' directory first on PATH and starts a thread that receives their command lines
    // on a local socket. Call it once, before other threads read the environment. Returns false,
    // with errno set, if the socket or the thread cannot be made.
    bool install();

 private:
    void serve(int server);

    Journal& mJournal;
};

}  // namespace hostplatform
