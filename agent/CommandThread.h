// The one thread on which commands are carried out, whoever they come from.
#pragma once

#include <asio/thread_pool.hpp>
#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include "CommandRunner.h"
#include "DeviceTrace.h"
#include "LineSplitter.h"

namespace agent {

// Posted commands run one after the other, in the order in which they were posted.
class CommandThread {
 public:
    // The final status line, or nothing when the command was dropped because the agent ends. Called
    // exactly once per command, on the command thread; must not block.
    using Done = std::function<void(std::optional<std::string> answer)>;

    // With `trace`, prints after each command what it made the device do; the next command starts
    // after that, while `done` is called before. `runner` must outlive this object.
    CommandThread(CommandRunner& runner, bool trace);

    // Waits for the commands that were posted, and for what they have started.
    ~CommandThread();
    CommandThread(const CommandThread&) = delete;
    CommandThread& operator=(const CommandThread&) = delete;

    // `command` is what the runner accepted of `line`; without it the line is answered INVALID in
    // its turn. The line and its answers go to the journal's component "capi", and with `echo`, or
    // with the trace, to standard output. Callable on any thread.
    void post(const Line& line, std::optional<CapiCommand> command, bool echo, Done done);

    // From now on no command is started. Callable on any thread.
    void stop() { mStopped = true; }

 private:
    void run(const std::string& shown, const std::optional<CapiCommand>& command, bool echo,
             Done done);

    CommandRunner& mRunner;
    const bool mTraced;
    DeviceTrace mTrace;
    std::atomic<bool> mStopped{false};
    asio::thread_pool mPool{1};  // last: its thread uses the rest
};

}  // namespace agent
