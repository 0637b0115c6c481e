// Runs scripts.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CommandRunner.h"
#include "CommandThread.h"
#include "FileDescriptor.h"
#include "LineSplitter.h"

namespace agent {

// Carries out the commands of scripts one after the other, as they can be read, and says on
// standard error what did not end as expected.
class ScriptRunner {
 public:
    // Opens every file of `paths`, "-" being standard input. Throws StartError when one cannot be
    // read. A wait of a script fails after `waitLimit` of real time. `commands` and `runner` must
    // outlive this object.
    ScriptRunner(const std::vector<std::string>& paths, CommandThread& commands,
                 const CommandRunner& runner, std::chrono::seconds waitLimit);

    // Runs all scripts; false when something was not as expected or stop() came first. Blocks. On
    // any thread but the command thread.
    bool run();

    // Makes run() return, after the command in progress if there is one. Callable on any thread.
    void stop();

 private:
    struct Input {
        std::string name;
        FileDescriptor file;
    };

    void runScript(const Input& input);
    void onLine(const Line& line);
    void runCommand(const Line& line);
    void waitFor(const std::string& component, const std::string& text);
    void endExpectation();
    std::string readSome(const Input& input);
    void fail(const std::string& what);

    CommandThread& mCommands;
    const CommandRunner& mRunner;
    const std::chrono::seconds mWaitLimit;
    FileDescriptor mStopEvent;  // readable once stop() was called
    std::atomic<bool> mStopped{false};
    std::vector<Input> mInputs;

    // Of the script being run:
    std::string mName;
    std::size_t mLineNumber = 0;
    uint64_t mWaitFrom = 0;                   // the journal's entries before it are dealt with
    std::optional<std::string> mExpectation;  // of the next command
    bool mAsExpected = true;                  // of all scripts
};

}  // namespace agent
