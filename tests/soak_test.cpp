// A soak test: one process gives minutes of mixed commands, with faults switched on and off at
// random, and afterwards threads, descriptors, heap and journal account for everything.
//
// One thread gives the commands, as an agent does; SoakWorld is what happens meanwhile. Every few
// hundred commands everything else rests, without faults: then a fixed sequence of commands must
// work exactly, and the books (SoakAccount) must balance. The first violation ends the run.
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "ChannelTest.h"
#include "Clock.h"
#include "Compositor.h"
#include "DeviceTest.h"
#include "FakeDnsSd.h"
#include "Journal.h"
#include "SessionService.h"
#include "ShellTools.h"
#include "SoakAccount.h"
#include "SoakCommands.h"
#include "SoakWorld.h"
#include "SystemFaults.h"
#include "TextFormat.h"
#include "miracast_sigma.h"
#include "uibc.h"

using hostplatform::currentSession;
using hostplatform::Journal;

namespace {

using Clock = std::chrono::steady_clock;

// Three for each discovery object.
constexpr unsigned kDescriptors = 5000;
constexpr int kSkipped = 77;

constexpr double kFast = 2000;
constexpr double kExact = 20;  // a registration has half a second of real time, a session three
constexpr std::chrono::seconds kPatience(60);
constexpr int kRoundCommands = 300;
constexpr int kMostRounds = 60;
constexpr size_t kShownEntries = 300;  // of the journal, after a violation
constexpr unsigned kHangs = 300;       // seconds

const std::string kTrigger("\0\2\x1c\x45", 4);  // to connect to port 7237
constexpr const char* kPeerName = "Soak peer";
constexpr const char* kPeerAddress = "127.0.0.3";

// The standard output that this program was started with; the library prints to stdout and stderr.
FILE* output = stdout;

struct Options {
    double minutes = 0.1;
    uint64_t seed = std::random_device()();
    int leastPerMinute = 2000;
};

template <typename Condition>
bool waitUntil(Condition condition) {
    const auto end = Clock::now() + kPatience;
    while (!condition()) {
        if (Clock::now() > end) return false;
        usleep(200);  // between two looks
    }
    return true;
}

// A sink's port, on which a source asks it to connect.
class Listener {
 public:
    Listener() : mSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        require(bind(mSocket, any, size) == 0 && listen(mSocket, 4) == 0 &&
                    getsockname(mSocket, any, &size) == 0,
                "no port for a sink");
        mPort = ntohs(address.sin_port);
    }
    ~Listener() { close(mSocket); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    int port() const { return mPort; }
    std::string received() const {
        pollfd ready{mSocket, POLLIN, 0};
        if (poll(&ready, 1, 20'000) <= 0) return "(nobody)";
        const int connection = accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC);
        std::string bytes(16, '\0');
        const ssize_t got = recv(connection, bytes.data(), bytes.size(), 0);
        bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        close(connection);
        return bytes;
    }

 private:
    const int mSocket;
    int mPort = 0;
};

class Soak {
 public:
    explicit Soak(const Options& options)
        : mOptions(options),
          mFaults(options.seed + 10),
          mCommands(options.seed, mFaults, mAccount),
          mWorld(options.seed + 20, mFaults, mAccount) {}

    bool run();

 private:
    void round();
    // What must work.
    void checkDirectSession();
    void checkInput();
    void checkRegistration();
    void checkDiscovery(bool asSource);
    void checkInputs();
    void checkJournal();
    void checkBooks();

    void quiesce();
    void end();  // of the current session
    void learn();
    void report(const std::string& violation);

    const Options mOptions;
    SoakAccount mAccount;
    SoakFaults mFaults;
    SoakCommands mCommands;
    SoakWorld mWorld;
    Clock::time_point mBegin = Clock::now();
    long mRounds = 0;
    long mOwnInputs = 0;
    long mInputs = 0;   // accepted until the round began
    long mTaken = 0;    // out of the queue until then
    long mFlushes = 0;  // of the queue until then
    std::vector<SoakAccount::Figure> mFigures;
};

// Waits until nothing happens any more: every thread that comes and goes has gone.
void Soak::quiesce() {
    const bool rests = waitUntil([this] {
        return hostplatform::waitReported() && FakeDnsSd::instance().idle() &&
               mAccount.threads().holds();
    });
    const SoakAccount::Figure threads = mAccount.threads();
    require(rests, "no rest: %ld threads instead of %ld", threads.found, threads.expected);
}

void Soak::end() {
    require(sta_reset_default("Program,DisplayR2") == 0, "a reset fails");
    quiesce();
    require(g_wfd_session_id == 0, "an identifier after a reset");
}

void Soak::checkDirectSession() {
    const uint64_t mark = Journal::instance().mark();
    const std::string id = mCommands.startBy(start_wfd_connection, 7236, 1);
    quiesce();
    auto session = currentSession();
    require(session && id == hostplatform::format("%.8d", session->id) && session->state == "PLAY",
            "the session %s is not that of the client", id.c_str());
    for (const char* const type : {"PAUSE", "PLAY", "TEARDOWN"}) {
        const std::string text = std::string("framename,RTSP,RtspMsgType,") + type;
        require(dev_send_frame(text.c_str()) == 1, "%s fails", type);
    }
    quiesce();
    for (const char* const call :
         {"pause_rtsp flag 0 id ", "play_rtsp flag 0 id ", "teardown_rtsp flag 1 id "}) {
        require(Journal::instance().count("session", call + std::to_string(session->id) + " -> 0",
                                          mark) == 1,
                "%s has not reached the session client", call);
    }
    session = currentSession();
    require(session && session->state == "STOPPED" && g_wfd_session_id == 0 &&
                hostplatform::Compositor::instance().virtualDisplays().empty(),
            "a session after its teardown");
    end();
}

void Soak::checkInput() {
    mCommands.startBy(connect_go_start_wfd, 7236, 1);
    quiesce();
    const uint64_t mark = Journal::instance().mark();
    hostplatform::setTimeScale(kFast);
    require(sta_generate_event("Type,UIBC_Gen,UIBCEventType,KeyBoard") == 0, "UIBC");
    hostplatform::setTimeScale(kExact);
    const long taken = mAccount.count(Event::InputTaken);
    constexpr uint32_t kActions[] = {1, 0, 2, 1};
    for (const uint32_t action : kActions) {
        require(hostplatform::injectInput(hostplatform::touchEvent(action)), "a refused input");
        ++mOwnInputs;
    }
    require(hostplatform::injectInput(hostplatform::keyEvent('a', 0)), "a refused input");
    ++mOwnInputs;
    require(Journal::instance().waitFor("tool", "input keyevent 29", mark).has_value(),
            "an input is not injected");
    {
        const android::Mutex::Autolock lock(mLock);
        require(mAccount.count(Event::InputTaken) == taken + 5 && myList.empty(), "lost inputs");
    }
    require(dev_send_frame("framename,RTSP,RtspMsgType,TEARDOWN") == 1, "TEARDOWN fails");
    quiesce();
    // The worker has ended; the library sets one up once in a process.
    uibc_setup_done = 0;
    uibc_complete_flag = 0;
    end();
}

void Soak::checkRegistration() {
    const long clients = mAccount.count(Event::ClientMade);
    mCommands.registerAs("p-sink", kPeerName);
    require(SoakWorld::sendToSink(mAccount.ports().back(), kTrigger),
            "a registered sink cannot be triggered");
    quiesce();
    const auto session = currentSession();
    require(mAccount.count(Event::ClientMade) == clients + 1 && session &&
                session->peer.rtspPort == 7237 &&
                session->peer.ipAddress == std::string("127.0.0.1"),
            "a trigger does not make a session");
    end();
    mCommands.registerAs("", "");
}

void Soak::checkDiscovery(bool asSource) {
    const Listener sink;
    mWorld.pause({kPeerName, kPeerAddress, sink.port()});
    mCommands.startBy(start_wfd_connection, -100, asSource ? 1 : 0);
    const auto session = currentSession();
    require(session && session->peer.ipAddress == std::string(kPeerAddress) &&
                session->peer.rtspPort == (asSource ? 7236 : sink.port()),
            "the session with a discovered peer is with %s:%d",
            session ? session->peer.ipAddress : "nobody", session ? session->peer.rtspPort : 0);
    if (asSource) {
        require(sink.received() == std::string("\0\2\x1c\x44", 4), "no trigger");
    }
    quiesce();
    require(dev_send_frame("framename,RTSP,RtspMsgType,TRIGGER-TEARDOWN") == 1, "TEARDOWN fails");
    quiesce();
    // A source leaves alone what a sink before it has left.
    require(asSource || hostplatform::Compositor::instance().layers().empty(),
            "a sink's layer stays");
    end();
    mCommands.registerAs("", "");
}

// Everything that the library was handed has gone somewhere.
void Soak::checkJournal() {
    const auto all = [this](Event event) { return mAccount.count(event); };
    const auto mine = [this](Event event) { return mAccount.ofCommands(event); };
    const auto equal = [](long one, long other, const char* what) {
        require(one == other, "%s: %ld, %ld", what, one, other);
    };
    equal(all(Event::Allocated), mCommands.counts().responses + mCommands.counts().takenBack,
          "responses made, and accounted for");
    equal(mine(Event::SessionMade), mCommands.counts().sessions + mCommands.counts().timedOut,
          "sessions of commands made, and started");
    equal(all(Event::ClientMade), all(Event::SessionAsked), "clients, and sessions asked for");
    equal(all(Event::SessionAsked) - mine(Event::SessionAsked) + all(Event::NoClient) -
              mine(Event::NoClient),
          all(Event::Triggered), "triggered starts, and triggers");
    require(all(Event::Triggered) <= all(Event::CommandRead), "triggers that nobody sent");
    equal(all(Event::Tool),
          all(Event::InputShown) + mCommands.counts().shellCalls - failedCalls(SystemCall::Shell),
          "shell tools run, and asked for");
}

// What was accepted was injected, or waits, or was dropped by a flush, which says not how many.
void Soak::checkInputs() {
    const long accepted = mWorld.inputsAccepted() + mOwnInputs - mInputs;
    const long accounted =
        mAccount.count(Event::InputTaken) - mTaken + static_cast<long>(myList.size());
    const bool flushed = mAccount.count(Event::QueueFlushed) != mFlushes;
    require(accounted == accepted || (flushed && accounted < accepted),
            "%ld inputs were accepted, %ld injected or queued", accepted, accounted);
    flushUIBCList();
    mInputs = mWorld.inputsAccepted() + mOwnInputs;
    mTaken = mAccount.count(Event::InputTaken);
    mFlushes = mAccount.count(Event::QueueFlushed);
}

void Soak::checkBooks() {
    checkInputs();
    checkJournal();
    const auto& compositor = hostplatform::Compositor::instance();
    require(compositor.layers().empty() && compositor.openConnections() == 0 &&
                compositor.virtualDisplays().empty(),
            "layers, connections or displays are left");
    // The monitors are still removing what was stopped.
    waitUntil([this] {
        mFigures = mAccount.figures();
        return std::all_of(mFigures.begin(), mFigures.end(),
                           [](const auto& figure) { return figure.holds(); });
    });
    for (const auto& figure : mFigures) {
        require(figure.holds(), "%ld %s instead of %ld", figure.found, figure.name,
                figure.expected);
    }
}

// Everything comes to rest; then what must work is tried, and the books are balanced.
void Soak::round() {
    mWorld.pause({kPeerName, kPeerAddress, 1});
    mFaults.clear();
    hostplatform::setPeer(hostplatform::Peer::Answers);
    // A source does not wait until its sink has read what it sent; a server takes one command after
    // the other.
    const std::vector<int> own = mAccount.ports();
    for (const int port : mCommands.takeTriggered()) {
        const bool known = std::find(own.begin(), own.end(), port) != own.end();
        if (known) SoakWorld::sendToSink(port, kTrigger);
    }
    require(hostplatform::waitReported(), "reports do not end");
    endUibcWorker();
    mCommands.registerAs("", "");
    quiesce();
    checkInputs();
    hostplatform::setTimeScale(kExact);
    end();
    checkDirectSession();
    checkInput();
    checkRegistration();
    checkDiscovery(true);
    checkDiscovery(false);
    checkBooks();
    const std::vector<std::string> violations = FakeDnsSd::instance().takeViolations();
    require(violations.empty(), "DNS-SD: %s", violations.empty() ? "" : violations[0].c_str());
    ++mRounds;
    hostplatform::setTimeScale(kFast);
    mWorld.resume();
}

// Without faults, and after a first round, in which what is made once has been made.
void Soak::learn() {
    constexpr int kTimes = 16;
    const auto times = [](const std::function<void()>& act) {
        for (int i = 0; i < kTimes; ++i) act();
    };
    mWorld.pause({kPeerName, kPeerAddress, 1});
    hostplatform::setTimeScale(kExact);
    mAccount.setGround();
    checkDirectSession();
    checkInput();
    checkRegistration();
    checkDiscovery(true);
    checkDiscovery(false);
    hostplatform::setTimeScale(10 * kExact);
    mAccount.learnSession(kTimes, [&] {
        times([this] {
            mCommands.startBy(start_wfd_connection, 7236, 0);
            quiesce();
            end();
        });
    });
    const auto register1 = [&](const char* type) {
        times([&] {
            mCommands.registerAs(type, kPeerName);
            mCommands.registerAs("", "");
        });
        quiesce();
        // A monitor begins with a rescan for each of its requests.
        Journal::instance().waitQuiet(std::chrono::milliseconds(100), kPatience);
    };
    mAccount.learnMonitor(kTimes, [&] { register1("source"); });
    mAccount.learnServer(kTimes, [&] { register1("p-sink"); });
    mAccount.setGround();
    mWorld.resume();
    hostplatform::setTimeScale(kFast);
}

void Soak::report(const std::string& violation) {
    const SoakCommands::Counts& counts = mCommands.counts();
    const double minutes = std::chrono::duration<double>(Clock::now() - mBegin).count() / 60;
    const auto perMinute = static_cast<long>(static_cast<double>(counts.commands) / minutes);
    fprintf(output, "%ld commands in %.1f minutes, %ld per minute, %ld recoveries\n",
            counts.commands, minutes, perMinute, mRounds);
    fprintf(output, "%ld sessions by commands, %ld by triggers, %ld not up in time\n",
            counts.sessions, mAccount.count(Event::SessionMade) - counts.sessions - counts.timedOut,
            counts.timedOut);
    fprintf(output, "%ld discovery objects, %ld trigger servers, %ld of them ended\n",
            mAccount.count(Event::MonitorStarted),
            mAccount.count(Event::ServerMade) - mAccount.count(Event::ServerWithoutThread),
            mAccount.count(Event::ServerEnded));
    fprintf(output, "%ld responses, %ld inputs accepted, %ld shell tools, %ld rescans lost\n",
            counts.responses, mWorld.inputsAccepted() + mOwnInputs, mAccount.count(Event::Tool),
            mAccount.count(Event::RescanLost));
    fprintf(output, "faults:");
    for (const auto& [name, count] : mFaults.counts()) fprintf(output, " %s %d,", name, count);
    const auto [session, object, server] = mAccount.learnt();
    fprintf(output, "\nheap per session %ld, discovery object %ld, trigger server %ld\n", session,
            object, server);
    fprintf(output, "%-16s %10s %10s %10s\n", "", "expected", "found", "allowed");
    for (const SoakAccount::Figure& figure : mFigures) {
        fprintf(output, "%-16s %10ld %10ld %+10ld\n", figure.name, figure.expected, figure.found,
                figure.allowedAbove);
    }
    if (!violation.empty()) {
        const std::vector<hostplatform::JournalEntry> entries = Journal::instance().entries();
        const size_t shown = std::min(entries.size(), kShownEntries);
        for (size_t i = entries.size() - shown; i < entries.size(); ++i) {
            fprintf(output, "%s\n", toString(entries[i]).c_str());
        }
        fprintf(output, "FAILED, seed %llu, command %ld: %s\n",
                static_cast<unsigned long long>(mOptions.seed), counts.commands, violation.c_str());
    }
}

// The number of the command that is being carried out, for the alarm.
std::atomic<long> runningCommand{0};

[[noreturn]] void onAlarm(int /*signal*/) {
    dprintf(fileno(output), "FAILED: command %ld does not end\n", runningCommand.load());
    abort();
}

bool Soak::run() {
    std::string violation;
    try {
        learn();
        mBegin = Clock::now();
        const std::chrono::duration<double> length(60 * mOptions.minutes);
        const auto progress = [&] {
            return std::chrono::duration<double>(Clock::now() - mBegin) / length;
        };
        const long& commands = mCommands.counts().commands;
        long roundEnd = kRoundCommands;
        double nextRound = 0;
        while (true) {
            const double now = progress();
            if (now >= 1) break;
            if (commands >= roundEnd && now >= nextRound) {
                round();
                const double spent = progress() - now;
                roundEnd = commands + kRoundCommands;
                nextRound = now + std::max(1.0 / kMostRounds, 5 * spent);
            }
            alarm(kHangs);
            ++runningCommand;
            mCommands.give(now);
        }
        round();
        const std::chrono::duration<double, std::ratio<60>> used = Clock::now() - mBegin;
        require(static_cast<double>(commands) >= mOptions.leastPerMinute * used.count(),
                "fewer than %d commands per minute", mOptions.leastPerMinute);
    } catch (const std::exception& found) {
        violation = found.what();
    }
    alarm(0);
    report(violation);
    return violation.empty();
}

int soak(const Options& options) {
    output = fdopen(dup(STDOUT_FILENO), "w");
    if (output == nullptr || freopen("/dev/null", "w", stdout) == nullptr) return 1;
    stderr = stdout;  // what the library prints; sanitizers write to the descriptor itself
    setvbuf(output, nullptr, _IOLBF, 0);
    fprintf(output, "seed %llu\n", static_cast<unsigned long long>(options.seed));
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    if (!hostplatform::installShellTools(hostplatform::shellToolsDirectory())) return 1;
    FakeDnsSd::instance().setJournalled(false);
    signal(SIGALRM, onAlarm);

    Soak soak(options);
    const bool good = soak.run();
    hostplatform::shutdownSessions();
    return good ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) try {
    Options options;
    CLI::App app("Gives the library mixed commands while everything around it fails at random.");
    app.add_option("--minutes", options.minutes, "how long")->check(CLI::PositiveNumber);
    app.add_option("--seed", options.seed, "which commands and faults (otherwise a random number)");
    app.add_option("--least-per-minute", options.leastPerMinute,
                   "fail with fewer commands than that");
    CLI11_PARSE(app, argc, argv);
    if (!allowDescriptors(kDescriptors)) {
        printf("skipped: %u descriptors are not allowed\n", kDescriptors);
        return kSkipped;
    }
    return soak(options);
} catch (const std::exception& error) {
    fprintf(stderr, "%s\n", error.what());
    return 1;
}
