// Runs scripts: command lines as people write them.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/CommandRunner.h"
#include "agent/LineSplitter.h"
#include "host/UniqueFd.h"

namespace agent {

// Carries out the commands of scripts one after the other, as they can be read, and says on
// standard error what did not end as expected. Without an expectation a command must be COMPLETE.
//
// Blank lines and lines that begin with '#' are passed over, except these:
//   #expect TEXT   the next command must end with status,TEXT or with status,TEXT,...
//   #settle        wait until the device has done all that the commands so far made it do
//   #wait COMPONENT TEXT
//                  wait until the journal holds an entry of COMPONENT that contains TEXT, from the
//                  entry on that follows the one with which the script's last #wait ended, or from
//                  the script's start on
class ScriptRunner {
 public:
    // Opens every file of `paths`, "-" being standard input. Throws std::runtime_error when one
    // cannot be read. A wait of a script fails after `waitLimit` of real time. `runner` must
    // outlive this object.
    ScriptRunner(const std::vector<std::string>& paths, CommandRunner& runner,
                 std::chrono::seconds waitLimit);

    // Runs all scripts; false when something was not as expected or stop() came first. Blocks.
    bool run();

    // Makes run() return, after the command in progress if there is one. Callable on any thread.
    void stop();

 private:
    struct Input {
        std::string name;
        hostplatform::UniqueFd file;
    };

    void runScript(const Input& input);
    void onLine(const Line& line);
    bool onDirective(std::string_view line);
    void runCommand(const Line& line);
    void expectNext(std::string_view text);
    void waitFor(std::string_view argument);
    void endExpectation();
    std::string readSome(const Input& input);
    void fail(const std::string& what);

    CommandRunner& mRunner;
    const std::chrono::seconds mWaitLimit;
    hostplatform::UniqueFd mStopEvent;  // readable once stop() was called
    std::atomic<bool> mStopped{false};
    std::vector<Input> mInputs;

    // Of the script being run:
    std::string mName;
    std::size_t mLineNumber = 0;
    std::uint64_t mWaitFrom = 0;              // earlier entries of the journal are dealt with
    std::optional<std::string> mExpectation;  // of the next command
    bool mAsExpected = true;                  // of all scripts
};

}  // namespace agent
