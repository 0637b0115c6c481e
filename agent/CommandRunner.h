// What each command does: the library's functions, and the few answers of the agent itself.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "CapiCommand.h"
#include "LineSplitter.h"
#include "PlaybackThreads.h"
#include "SigmaLibrary.h"

namespace agent {

constexpr char kRunning[] = "status,RUNNING";
constexpr char kInvalid[] = "status,INVALID,errorCode,-2";

class CommandRunner {
 public:
    // `library` must outlive the runner.
    explicit CommandRunner(const SigmaLibrary& library);
    CommandRunner(const CommandRunner&) = delete;
    CommandRunner& operator=(const CommandRunner&) = delete;

    // The command of a line that is not blank; nothing, and a log line with the reason, when the
    // line is malformed or its command unknown. Callable on any thread.
    std::optional<CapiCommand> accept(const Line& line) const;

    // Carries out an accepted command and returns the final status line, without its end:
    // status,COMPLETE[,name,value...], status,ERROR,errorCode,N or status,INVALID,errorCode,N.
    // Blocks for as long as the command takes. On the command thread only: the library takes one
    // command at a time.
    std::string run(const CapiCommand& command);

    // Waits until what commands have started in the background is done. After the last command.
    void finish() { mPlayback.joinAll(); }

 private:
    using Handler = std::function<std::string(const CapiCommand&)>;

    std::string execAction(const SigmaLibrary& library, const CapiCommand& command);

    std::map<std::string, Handler> mHandlers;  // by the name in lower case; never changes
    PlaybackThreads mPlayback;
};

}  // namespace agent
