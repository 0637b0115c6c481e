#include "agent/ScriptRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "agent/Log.h"
#include "agent/Text.h"
#include "host/SimulatedDevice.h"

namespace agent {

namespace {

using hostplatform::UniqueFd;

constexpr std::chrono::seconds kSettleWait{10};

std::string errorText() { return std::generic_category().message(errno); }

// Programs that the library starts inherit standard input and could read the script away: it moves
// to a descriptor of its own.
int takeStandardInput() {
    const int script = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const UniqueFd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (script >= 0 && nothing) dup2(nothing.get(), STDIN_FILENO);
    return script;
}

UniqueFd openScript(const std::string& path) {
    UniqueFd file(path == "-" ? takeStandardInput() : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        throw std::runtime_error("cannot read the script " + path + ": " + errorText());
    }
    if (S_ISDIR(status.st_mode)) {
        throw std::runtime_error("cannot read the script " + path + ": it is a directory");
    }
    return file;
}

bool beginsWith(std::string_view text, std::string_view part) {
    return text.substr(0, part.size()) == part;
}

// The first word of `text`, and what follows it.
std::pair<std::string_view, std::string_view> splitWord(std::string_view text) {
    const std::string_view word = text.substr(0, text.find_first_of(" \t"));
    return {word, trimmed(text.substr(word.size()))};
}

}  // namespace

ScriptRunner::ScriptRunner(const std::vector<std::string>& paths, CommandRunner& runner,
                           std::chrono::seconds waitLimit)
    : mRunner(runner), mWaitLimit(waitLimit), mStopEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!mStopEvent) throw std::runtime_error("cannot run scripts: " + errorText());
    for (const std::string& path : paths) {
        mInputs.push_back({path == "-" ? "(standard input)" : path, openScript(path)});
    }
}

bool ScriptRunner::run() {
    for (const Input& input : mInputs) {
        runScript(input);
        if (!mStopped) continue;
        logLine(input.name + " was stopped before its end");
        return false;
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
    mWaitFrom = hostplatform::device().journal().mark();
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
    const std::string_view text = trimmed(line.text);
    if (line.fault == nullptr && (text.empty() || (text.front() == '#' && onDirective(text))))
        return;
    runCommand(line);
}

// A comment is a directive that asks for nothing. But what merely begins like a check is a mistake:
// passed over as a comment it would let the script succeed without the check.
bool ScriptRunner::onDirective(std::string_view line) {
    const auto [word, argument] = splitWord(line);
    if (word == "#settle") {
        if (!CommandRunner::waitDeviceAtRest(kSettleWait)) fail("the device does not come to rest");
    } else if (word == "#expect") {
        expectNext(argument);
    } else if (word == "#wait") {
        waitFor(argument);
    } else if (beginsWith(word, "#expect") || beginsWith(word, "#wait")) {
        fail("unknown directive " + printable(word));
    }
    return true;
}

void ScriptRunner::runCommand(const Line& line) {
    const hostplatform::Lock turn(mRunner.turn());
    const std::string answer = mRunner.run(line, true);
    const std::string wanted = "status," + mExpectation.value_or("COMPLETE");
    if (answer != wanted && !beginsWith(answer, wanted + ',')) {
        fail("expected " + wanted + ", got " + answer);
    }
    mExpectation.reset();
    mRunner.traceDevice();
}

void ScriptRunner::expectNext(std::string_view text) {
    endExpectation();
    const std::string_view status = text.substr(0, text.find(','));
    if (status == "COMPLETE" || status == "ERROR" || status == "INVALID") {
        mExpectation = text;
    } else {
        fail("an expectation begins with COMPLETE, ERROR or INVALID, got \"" + printable(text) +
             '"');
    }
}

void ScriptRunner::waitFor(std::string_view argument) {
    const auto [component, text] = splitWord(argument);
    if (text.empty()) {
        fail("a wait names a component and a text, got \"" + printable(argument) + '"');
        return;
    }
    // In short pieces, so that stop() is heard.
    constexpr std::chrono::milliseconds kPiece{50};
    const auto deadline = std::chrono::steady_clock::now() + mWaitLimit;
    while (!mStopped) {
        const auto entry = hostplatform::device().journal().waitFor(
            std::string(component), std::string(text), mWaitFrom, kPiece);
        if (entry) {
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
    mExpectation.reset();
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
    const std::string line = mName + ":" + std::to_string(mLineNumber) + ": " + what;
    logLine(line);
    hostplatform::device().journal().add("script", line);
    mAsExpected = false;
}

}  // namespace agent
