// capi-agent: the simulated device, the library and the ways in.
#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "agent/CommandRunner.h"
#include "agent/ControllerServer.h"
#include "agent/Log.h"
#include "agent/Options.h"
#include "agent/ScriptRunner.h"
#include "agent/SigmaLibrary.h"
#include "agent/report.h"
#include "host/SimulatedDevice.h"

namespace {

using namespace agent;

// A file of which every line is written out at once; null for an empty path.
std::shared_ptr<std::FILE> openFile(const char* what, const std::string& path) {
    if (path.empty()) return nullptr;
    std::FILE* const file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        throw std::runtime_error(std::string("cannot write the ") + what + ' ' + path + ": " +
                                 std::generic_category().message(errno));
    }
    std::setvbuf(file, nullptr, _IOLBF, BUFSIZ);
    return {file, &std::fclose};
}

using hostplatform::device;

void setUpDevice(const Options& options) {
    if (!device().shellTools().install()) {
        throw std::runtime_error("cannot set up the simulated device's shell tools: " +
                                 std::generic_category().message(errno));
    }
    device().clock().setScale(options.timeScale);
    device().session().setPeer(options.peer);
    device().log().setComplaintHandler(logLine);
    // Open until the end of the process, since threads of the library log until then.
    static const auto log = openFile("log", options.log);
    const char* const tags = std::getenv("ANDROID_LOG_TAGS");
    device().log().writeTo(log ? log.get() : tags != nullptr ? stderr : nullptr, tags);
    if (const auto file = openFile("journal", options.journal)) {
        device().journal().setObserver([file](const hostplatform::JournalEntry& entry) {
            std::fprintf(file.get(), "%s\n", hostplatform::toString(entry).c_str());
        });
    }
}

// Serves controllers and runs the scripts, until the scripts have ended when there are no
// controllers to serve, or until SIGINT or SIGTERM. Returns whether every script ended as it says
// it must.
bool run(const Options& options, const SigmaLibrary& library,
         const std::function<bool()>& writeReport) {
    CommandRunner runner(
        library, options.replies.empty() ? Replies() : readReplies(options.replies), options.trace);
    ScriptRunner scripts(options.scripts, runner, options.waitLimit);
    asio::io_context context(1);
    asio::signal_set signals(context, SIGINT, SIGTERM);
    asio::signal_set reportSignals(context);
    if (!options.report.empty()) reportSignals.add(SIGUSR1);
    std::optional<ControllerServer> server;
    if (options.listen) {
        server.emplace(*options.listen, runner, writeReport);
        if (options.trace) logLine("--trace waits after each command: a test's timing changes");
    }
    signals.async_wait([&](std::error_code cancelled, int) {
        if (cancelled) return;
        // From here on a second signal ends the program at once, with the signals' default action.
        signals.clear();
        if (const char* const command = runner.commandInProgress()) {
            logLine(std::string("finishing ") + command + " before the end");
        }
        scripts.stop();
        context.stop();
    });
    const std::function<void(std::error_code, int)> onReportSignal = [&](std::error_code cancelled,
                                                                         int) {
        if (cancelled) return;
        if (writeReport()) logLine("the report is written: " + options.report);
        reportSignals.async_wait(onReportSignal);
    };
    if (!options.report.empty()) reportSignals.async_wait(onReportSignal);
    std::thread hearingSignals([&context] { context.run(); });
    const bool asExpected = scripts.run();
    if (!server) context.stop();
    hearingSignals.join();
    return asExpected;
}

}  // namespace

int main(int argc, char** argv) try {
    // The library prints its progress with the same stdio; in order and at once, also into a pipe.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    // A pipe or socket that breaks is an error of the call that writes to it. Not SIG_IGN, which
    // programs that the library starts would inherit.
    struct sigaction survive {};
    survive.sa_handler = [](int) {};
    survive.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &survive, nullptr);

    Options options;
    if (const auto status = options.parse(argc, argv)) return *status;
    setUpDevice(options);
    const auto report = [&options] {
        return options.report.empty() || writeReport(options.report, options.timeScale);
    };
    // At once, so that a file that cannot be written is not found out at the end of the run.
    if (!report()) return 2;
    const bool asExpected = run(options, SigmaLibrary(options.library), report);
    device().session().shutdown();
    device().journal().setObserver({});
    device().log().writeTo(nullptr, nullptr);
    if (!report()) return 2;
    return asExpected ? 0 : 1;
} catch (const std::exception& error) {
    agent::logLine(error.what());
    return 2;
}
