#include "CommandThread.h"

#include <asio/post.hpp>
#include <chrono>
#include <cstdio>
#include <utility>

#include "Journal.h"
#include "Text.h"

namespace agent {

namespace {

constexpr std::chrono::seconds kTraceWait{2};

std::string shownText(const Line& line) {
    switch (line.kind) {
        case Line::Kind::TooLong:
            return "(a line that is too long)";
        case Line::Kind::HasNul:
            return "(a line with a NUL byte)";
        case Line::Kind::Text:
            break;
    }
    return printable(trimmedRight(line.text), 1000);
}

}  // namespace

CommandThread::CommandThread(CommandRunner& runner, bool trace) : mRunner(runner), mTraced(trace) {}

CommandThread::~CommandThread() {
    mPool.join();
    mRunner.finish();
    if (mTraced) mTrace.print();
}

void CommandThread::post(const Line& line, std::optional<CapiCommand> command, bool echo,
                         Done done) {
    asio::post(mPool,
               [this, shown = shownText(line), command = std::move(command), echo = echo || mTraced,
                done = std::move(done)]() mutable { run(shown, command, echo, std::move(done)); });
}

void CommandThread::run(const std::string& shown, const std::optional<CapiCommand>& command,
                        bool echo, Done done) {
    if (mStopped) {
        done(std::nullopt);
        return;
    }
    if (mTraced) mTrace.print();  // what an earlier command caused late stands under that command
    const auto tell = [echo](const std::string& line) {
        hostplatform::Journal::instance().add("capi", line);
        if (echo) std::puts(line.c_str());
    };
    tell(shown);
    if (command) tell(kRunning);
    const std::string answer = command ? mRunner.run(*command) : kInvalid;
    tell(answer);
    done(answer);
    done = nullptr;  // who asked does not have to live through the trace
    if (mTraced) {
        waitDeviceAtRest(kTraceWait);
        mTrace.print();
    }
}

}  // namespace agent
