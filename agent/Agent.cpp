#include "Agent.h"

#include <asio/post.hpp>
#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>
#include <thread>

#include "Clock.h"
#include "SessionService.h"
#include "ShellTools.h"
#include "StartError.h"

namespace agent {

namespace {

// Programs that the library starts get the default back, which they would not with SIG_IGN.
void surviveBrokenPipes() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
}

}  // namespace

Agent::Device::Device(const Options& options) {
    if (!hostplatform::installShellTools(hostplatform::shellToolsDirectory())) {
        throw StartError("cannot set up the simulated device's shell tools: " +
                         std::generic_category().message(errno));
    }
    hostplatform::setTimeScale(options.timeScale);
    hostplatform::setPeer(options.peer);
}

Agent::Device::~Device() { hostplatform::shutdownSessions(); }

Agent::Agent(const Options& options)
    : mJournal(options.journal.empty() ? nullptr : std::make_unique<JournalFile>(options.journal)),
      mDevice(options),
      mLibrary(options.library.empty() ? SigmaLibrary::defaultPath() : options.library),
      mRunner(mLibrary),
      mCommands(mRunner, options.trace),
      mScripts(options.scripts, mCommands, mRunner, options.waitLimit),
      mSignals(mContext, SIGINT, SIGTERM) {
    surviveBrokenPipes();
    if (options.listen) mServer.emplace(mContext, *options.listen, mCommands, mRunner);
}

Agent::~Agent() = default;

bool Agent::run() {
    mSignals.async_wait([this](std::error_code cancelled, int) {
        if (!cancelled) stop();
    });
    if (mServer) mServer->start();

    bool asExpected = true;
    std::thread scripts([&] {
        asExpected = mScripts.run();
        asio::post(mContext, [this] {
            // With nobody to serve, the signals are all that the context still waits for.
            if (!mServer) mSignals.cancel();
        });
    });
    mContext.run();
    scripts.join();
    return asExpected;
}

void Agent::stop() {
    // From here on a second signal ends the program at once, with the signals' default action.
    mSignals.clear();
    mCommands.stop();
    mScripts.stop();
    if (mServer) mServer->stop();
}

}  // namespace agent
