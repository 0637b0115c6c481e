#include "ScriptRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <future>
#include <system_error>
#include <utility>

#include "DeviceTrace.h"
#include "Journal.h"
#include "Log.h"
#include "Script.h"
#include "StartError.h"
#include "Text.h"

namespace agent {

namespace {

constexpr std::chrono::seconds kSettleWait{10};

std::string errorText() { return std::generic_category().message(errno); }

// Programs that the library starts inherit standard input and could read the script away: it moves
// to a descriptor of its own.
int takeStandardInput() {
    const int script = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const FileDescriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (script >= 0 && nothing.get() >= 0) dup2(nothing.get(), STDIN_FILENO);
    return script;
}

FileDescriptor openScript(const std::string& path) {
    FileDescriptor file(path == "-" ? takeStandardInput()
                                    : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        throw StartError("cannot read the script " + path + ": " + errorText());
    }
    if (S_ISDIR(status.st_mode)) {
        throw StartError("cannot read the script " + path + ": it is a directory");
    }
    return file;
}

}  // namespace

ScriptRunner::ScriptRunner(const std::vector<std::string>& paths, CommandThread& commands,
                           const CommandRunner& runner, std::chrono::seconds waitLimit)
    : mCommands(commands),
      mRunner(runner),
      mWaitLimit(waitLimit),
      mStopEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (mStopEvent.get() < 0) throw StartError("cannot run scripts: " + errorText());
    for (const std::string& path : paths) {
        mInputs.push_back({path == "-" ? "(standard input)" : path, openScript(path)});
    }
}

bool ScriptRunner::run() {
    for (const Input& input : mInputs) {
        if (!mStopped) runScript(input);
        if (mStopped) {
            logLine(input.name + " was stopped before its end");
            return false;
        }
    }
    return mAsExpected;
}

void ScriptRunner::stop() {
    mStopped = true;
    eventfd_write(mStopEvent.get(), 1);
}

void ScriptRunner::runScript(const Input& input) {
    mName = input.name;
    mLineNumber = 0;
    mWaitFrom = hostplatform::Journal::instance().mark();
    LineSplitter splitter;
    while (!mStopped) {
        const std::string bytes = readSome(input);
        for (const Line& line : splitter.feed(bytes)) onLine(line);
        if (bytes.empty()) break;
    }
    if (const auto last = splitter.finish()) onLine(*last);
    if (!mStopped) endExpectation();
    mExpectation.reset();
}

void ScriptRunner::onLine(const Line& line) {
    if (mStopped) return;
    ++mLineNumber;
    const ScriptLine parsed = line.kind == Line::Kind::Text
                                  ? ScriptLine::parse(line.text)
                                  : ScriptLine{ScriptLine::Kind::Command, {}, {}};
    switch (parsed.kind) {
        case ScriptLine::Kind::Nothing:
            break;
        case ScriptLine::Kind::Wrong:
            fail(parsed.text);
            break;
        case ScriptLine::Kind::Expect:
            endExpectation();
            mExpectation = parsed.text;
            break;
        case ScriptLine::Kind::Settle:
            if (!waitDeviceAtRest(kSettleWait)) fail("the device does not come to rest");
            break;
        case ScriptLine::Kind::Wait:
            waitFor(parsed.component, parsed.text);
            break;
        case ScriptLine::Kind::Command:
            runCommand(line);
            break;
    }
}

void ScriptRunner::runCommand(const Line& line) {
    std::promise<std::optional<std::string>> promise;
    mCommands.post(
        line, mRunner.accept(line), true,
        [&promise](const std::optional<std::string>& answer) { promise.set_value(answer); });
    const std::optional<std::string> answer = promise.get_future().get();
    if (answer && !isExpected(*answer, mExpectation)) {
        fail("expected status," + mExpectation.value_or("COMPLETE") + ", got " + *answer);
    }
    mExpectation.reset();
}

void ScriptRunner::waitFor(const std::string& component, const std::string& text) {
    // In short pieces, so that stop() is heard.
    constexpr std::chrono::milliseconds kPiece{50};
    const auto& journal = hostplatform::Journal::instance();
    const auto deadline = std::chrono::steady_clock::now() + mWaitLimit;
    while (!mStopped) {
        if (const auto entry = journal.waitFor(component, text, mWaitFrom, kPiece)) {
            mWaitFrom = entry->sequence + 1;
            return;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            fail("waited in vain for \"" + printable(text) + "\" of " + printable(component));
            return;
        }
    }
}

// An expectation that no command has met checks nothing.
void ScriptRunner::endExpectation() {
    if (mExpectation) fail("expected status," + *mExpectation + ", but no command followed");
}

// The next bytes, or none at the end, on failure and when stopped.
std::string ScriptRunner::readSome(const Input& input) {
    std::array<pollfd, 2> waits{{{input.file.get(), POLLIN, 0}, {mStopEvent.get(), POLLIN, 0}}};
    while (poll(waits.data(), waits.size(), -1) < 0 && errno == EINTR) {
    }
    if (mStopped) return {};
    std::array<char, 4096> bytes{};
    const ssize_t size = read(input.file.get(), bytes.data(), bytes.size());
    if (size < 0) {
        fail("cannot read on: " + errorText());
        return {};
    }
    return {bytes.data(), static_cast<std::size_t>(size)};
}

void ScriptRunner::fail(const std::string& what) {
    logLine(mName + ":" + std::to_string(mLineNumber) + ": " + what);
    mAsExpected = false;
}

}  // namespace agent
