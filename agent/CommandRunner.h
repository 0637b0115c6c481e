// What each command does: the library's functions, a file of replies, and the agent's own answers.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "agent/CapiCommand.h"
#include "agent/LineSplitter.h"
#include "agent/SigmaLibrary.h"
#include "agent/library_commands.h"
#include "agent/replies.h"
#include "host/Mutex.h"

namespace agent {

// Commands come from several threads and take turns: the library takes one at a time.
class CommandRunner {
 public:
    // With `trace`, prints under each command what it made the device do. `library` must outlive
    // the runner. Throws std::runtime_error for a reply to a command that the library carries out.
    CommandRunner(const SigmaLibrary& library, const Replies& replies, bool trace);
    // Waits for the last playback thread that a command started.
    ~CommandRunner();
    CommandRunner(const CommandRunner&) = delete;
    CommandRunner& operator=(const CommandRunner&) = delete;

    // To be held through run() and traceDevice().
    hostplatform::Mutex& turn() THREAD_ANNOTATION(lock_returned(mTurn)) { return mTurn; }

    // Carries out the command of a line that is not blank and returns its final status line,
    // without its end: status,COMPLETE[,name,value...], status,ERROR,errorCode,N or
    // status,INVALID,errorCode,N. What is wrong with a line that is not carried out goes to
    // standard error. The line and its answers go to the journal's component "capi", and with
    // `echo`, or with the trace, to standard output. Blocks for as long as the command takes.
    std::string run(const Line& line, bool echo) REQUIRES(mTurn);

    // With the trace: waits up to 2 seconds for the device to come to rest, and prints what the
    // last command made it do.
    void traceDevice() REQUIRES(mTurn);

    // The name of the command being carried out; null when there is none. On any thread.
    const char* commandInProgress() const { return mInProgress; }

    // Waits until the simulated device has reported everything and then does nothing for a moment,
    // each at most `timeout` of real time; false on timeout.
    static bool waitDeviceAtRest(std::chrono::milliseconds timeout);

 private:
    std::string carryOut(const CapiCommand& command) REQUIRES(mTurn);
    void takePlaybackThread() REQUIRES(mTurn);
    void printTrace() REQUIRES(mTurn);

    std::map<std::string, CommandHandler> mHandlers;  // by the name in lower case; never changes
    pthread_t* const mPlaybackWord;                   // the library's
    const bool mTraced;
    std::atomic<const char*> mInProgress{nullptr};

    hostplatform::Mutex mTurn;
    std::set<std::string> mUnknown GUARDED_BY(mTurn);  // names already complained about
    std::uint64_t mTraceFrom GUARDED_BY(mTurn) = 0;    // the trace has printed earlier entries
    pthread_t mPlayback GUARDED_BY(mTurn) = 0;         // the newest playback thread, to be joined
};

}  // namespace agent
