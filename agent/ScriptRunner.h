// Runs scripts.
#pragma once

#include <atomic>
#include <cstddef>
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
    // read. `commands` and `runner` must outlive this object.
    ScriptRunner(const std::vector<std::string>& paths, CommandThread& commands,
                 const CommandRunner& runner);

    // Runs all scripts; false when something was not as expected or stop() came first. Blocks. On
    // any thread but the command thread.
    bool run();

    // Makes run() return after the command in progress. Callable on any thread.
    void stop();

 private:
    struct Input {
        std::string name;
        FileDescriptor file;
    };

    void runScript(const Input& input);
    void onLine(const Line& line);
    void runCommand(const Line& line);
    void endExpectation();
    std::string readSome(const Input& input);
    void fail(const std::string& what);

    CommandThread& mCommands;
    const CommandRunner& mRunner;
    FileDescriptor mStopEvent;  // readable once stop() was called
    std::atomic<bool> mStopped{false};
    std::vector<Input> mInputs;

    // Of the script being run:
    std::string mName;
    std::size_t mLineNumber = 0;
    std::optional<std::string> mExpectation;  // of the next command
    bool mAsExpected = true;                  // of all scripts
};

}  // namespace agent
