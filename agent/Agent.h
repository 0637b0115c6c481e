// The whole agent: the library, the command thread, and the ways in.
#pragma once

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <memory>
#include <optional>

#include "CommandRunner.h"
#include "CommandThread.h"
#include "ControllerServer.h"
#include "JournalFile.h"
#include "Options.h"
#include "ScriptRunner.h"
#include "SigmaLibrary.h"

namespace agent {

class Agent {
 public:
    // Sets the simulated device up and loads the library. Throws StartError when the agent cannot
    // do all that is asked of it. On the main thread, before there is any other.
    explicit Agent(const Options& options);
    ~Agent();
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    // Runs the scripts and serves controllers until all that is asked is done, or until SIGINT or
    // SIGTERM. Returns whether every script ended as it says it must.
    bool run();

 private:
    // The simulated device, from its setting up until nothing of the agent needs it any more.
    struct Device {
        explicit Device(const Options& options);
        ~Device();
        Device(const Device&) = delete;
        Device& operator=(const Device&) = delete;
    };

    void stop();

    // In the order in which they need one another.
    const std::unique_ptr<JournalFile> mJournal;
    const Device mDevice;
    const SigmaLibrary mLibrary;
    CommandRunner mRunner;
    asio::io_context mContext;
    CommandThread mCommands;
    ScriptRunner mScripts;
    asio::signal_set mSignals;
    std::optional<ControllerServer> mServer;
};

}  // namespace agent
