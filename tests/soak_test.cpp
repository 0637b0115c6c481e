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
#include "FakeDnsSd.h"
#include "Journal.h"
#include "SessionService.h"
#include "ShellTools.h"
#include "SoakAccount.h"
#include "SoakWorld.h"
#include "SystemFaults.h"
#include "TextFormat.h"
#include "miracast_sigma.h"
#include "session_events.h"
#include "uibc.h"

using hostplatform::currentSession;
using hostplatform::Journal;

namespace {

using Clock = std::chrono::steady_clock;

// Discovery objects leave a thread each behind, and most a second one; ThreadSanitizer has room for
// some 8,000.
constexpr int kMostObjects = 1500;
constexpr unsigned kDescriptors = 3 * kMostObjects + 500;
constexpr int kSkipped = 77;

constexpr double kFast = 2000;
constexpr double kExact = 50;  // a session has more than a second of real time to come up
constexpr std::chrono::seconds kPatience(60);
constexpr int kRoundCommands = 300;
constexpr int kMostRounds = 60;

constexpr const char* kPeerName = "Soak peer";
constexpr const char* kPeerAddress = "127.0.0.3";
constexpr const char* kDirectPeer = "192.168.49.2";

// The standard output that this program was started with; the library prints to stdout and stderr.
FILE* output = stdout;

struct Options {
    double minutes = 0.1;
    uint64_t seed = std::random_device()();
    int leastPerMinute = 2000;
};

struct Violation {
    std::string text;
};

__attribute__((__format__(printf, 2, 3))) void require(bool condition, const char* pattern, ...) {
    if (condition) return;
    va_list arguments;
    va_start(arguments, pattern);
    Violation violation{hostplatform::formatArguments(pattern, arguments)};
    va_end(arguments);
    throw violation;
}

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

bool isIdentifier(const char* text) {
    const char* const digits = *text == '-' ? text + 1 : text;
    const size_t length = strspn(digits, "0123456789");
    return length >= 8 && digits[length] == '\0';
}

class Soak {
 public:
    explicit Soak(const Options& options)
        : mOptions(options),
          mRandom(options.seed),
          mFaults(options.seed + 10),
          mWorld(options.seed + 20, mFaults, mAccount) {}

    bool run();

 private:
    // Commands of the mixture; each checks what holds whatever fails.
    void command();
    void reset();
    void preset();
    void start();
    void sendFrame();
    void execAction();
    void generateEvent();
    std::string mutated(std::string text);
    void giveText(const std::string& text, int (*function)(const char*),
                  std::initializer_list<int> results);
    bool mayDiscover() const;

    void round();
    void endInputWorker();
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
    std::string started(int (*function)(const char*, const char*, int, int, char**), int port,
                        int peerType);
    void registered(const char* type);
    void learn();
    void report(const std::string& violation);

    const Options mOptions;
    Random mRandom;
    SoakAccount mAccount;
    SoakFaults mFaults;
    SoakWorld mWorld;
    Clock::time_point mBegin = Clock::now();
    double mProgress = 0;  // of the run, 0 to 1
    bool mObject = false;  // there may be a discovery object
    long mCommands = 0;
    long mRounds = 0;
    long mResponses = 0;
    long mTakenBack = 0;   // responses of starts that failed
    long mSessions = 0;    // started, by result
    long mTimedOut = 0;    // made, but not up in time
    long mShellCalls = 0;  // by dev_exec_action
    long mOwnInputs = 0;
    long mInputs = 0;   // accepted until the round began
    long mTaken = 0;    // out of the queue until then
    long mFlushes = 0;  // of the queue until then
    std::vector<SoakAccount::Figure> mFigures;
};

constexpr const char* kResetTexts[] = {"", "Program,WFD", "Program,DisplayR2", "displayr2"};
constexpr const char* kFrameTexts[] = {
    "framename,RTSP,RtspMsgType,PAUSE",
    "framename,RTSP,RtspMsgType,PLAY",
    "framename,RTSP,RtspMsgType,TEARDOWN",
    "framename,RTSP,RtspMsgType,TRIGGER-PAUSE",
    "framename,RTSP,RtspMsgType,TRIGGER-PLAY",
    "framename,RTSP,RtspMsgType,TRIGGER-TEARDOWN",
    "framename,RTSP,RtspMsgType,SETUP",
    "framename,RTSP,RtspMsgType,OPTIONS",
    "framename,RTSP,RtspMsgType,SET_PARAMETER",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,SetParameter,Standby",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,SetParameter,CapReNego,"
    "CapReNegotiateCodecProfile,H264-1",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateProfile,LPCM",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,SetParameter,CapReNego,"
    "CapReNegotiateCodecProfile,H265-9",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,TransportType,tcp",
    "framename,RTSP,RtspMsgType,SET_PARAMETER,TransportType,udp",
    "framename,P2P,source,a,destination,b",
};
constexpr const char* kPresetTexts[] = {
    "mdns_disc,disable",
    "mdns_disc,enable,mdns_role,browser,wfddevtype,source",
    "mdns_disc,enable,mdns_role,browser,wfddevtype,p-sink",
    "mdns_disc,enable,mdns_role,responder,wfddevtype,source",
    "mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink",
};
constexpr const char* kActionTexts[] = {
    "DirectStreaming,Start,CodecProfile,H264-0",
    "DirectStreaming,Start,CodecProfile,H264-1",
    "DirectStreaming,Stop",
};
constexpr const char* kBadActionTexts[] = {"", "DirectStreaming,Start",
                                           "DirectStreaming,Start,CodecProfile,H266",
                                           "DirectStreaming,Pause"};
constexpr const char* kEventTexts[] = {
    "Type,IdrReq",
    "Type,IdrReq",
    "Type,UIBC_Gen,UIBCEventType,Mouse",
    "Type,UIBC_Gen,UIBCEventType,KeyBoard",
    "Type,UIBC_HID,UIBCEventType,KEYBOARD",
    "Type,Nothing",
};

bool Soak::mayDiscover() const {
    return static_cast<double>(mAccount.count(Event::MonitorStarted)) <
           60 + (kMostObjects - 400) * mProgress;
}

// Sometimes a text as no controller should send it.
std::string Soak::mutated(std::string text) {
    if (!mRandom.oneIn(10)) return text;
    const auto place = static_cast<size_t>(mRandom.below(static_cast<int>(text.size()) + 1));
    switch (mRandom.below(4)) {
        case 0:
            return text.substr(0, place);
        case 1:
            return text.insert(place, static_cast<size_t>(mRandom.below(700)), 'x');
        case 2:
            return text.insert(place, 1, static_cast<char>(1 + mRandom.below(255)));
        default:
            return text.insert(place, ",,");
    }
}

void Soak::giveText(const std::string& text, int (*function)(const char*),
                    std::initializer_list<int> results) {
    const int result = function(mRandom.oneIn(200) ? nullptr : text.c_str());
    const bool known = std::find(results.begin(), results.end(), result) != results.end();
    require(known, "\"%s\" gives %d", text.c_str(), result);
}

void Soak::reset() { giveText(mutated(mRandom.of(kResetTexts)), sta_reset_default, {0}); }

void Soak::sendFrame() {
    giveText(mutated(mRandom.of(kFrameTexts)), dev_send_frame, {0, 1, 2, -1});
}

void Soak::generateEvent() {
    giveText(mutated(mRandom.of(kEventTexts)), sta_generate_event, {0, 2});
}

void Soak::execAction() {
    const bool good = mRandom.oneIn(3);  // two shell tools
    const std::string text = good ? mRandom.of(kActionTexts) : mRandom.of(kBadActionTexts);
    const int result = dev_exec_action(text.c_str());
    require(result == (good ? 1 : -2), "\"%s\" gives %d", text.c_str(), result);
    if (good) ++mShellCalls;
    if (const pthread_t thread = std::exchange(rtsp_playback_thread, 0); thread != 0) {
        require(pthread_join(thread, nullptr) == 0, "the playback thread cannot be joined");
        mShellCalls += 2;
    }
}

void Soak::preset() {
    std::string text = mRandom.of(kPresetTexts);
    const bool registers = text.find("responder") != std::string::npos;
    if (registers && !mayDiscover()) text = kPresetTexts[0];
    text = mutated(std::move(text));
    mObject = registers;
    const long allocated = mAccount.ofCommands(Event::Allocated);
    const bool wanted = !mRandom.oneIn(50);
    char* response = nullptr;
    const int result = sta_preset_testparameters(text.c_str(), wanted ? &response : nullptr);
    const bool answered = mAccount.ofCommands(Event::Allocated) > allocated;
    require((response != nullptr) == answered, "a preset's response");
    require(result == 0 || (result == -1 && response == nullptr), "\"%s\" gives %d", text.c_str(),
            result);
    if (response == nullptr) return;
    ++mResponses;
    require(strlen(response) < sizeof instanceName, "the name \"%s\"", response);
    free(response);
}

void Soak::start() {
    const bool discovers = mRandom.oneIn(12) && (mObject || mayDiscover());
    mObject = mObject || discovers;
    const int peerType = mRandom.below(2);
    const int port = discovers ? -100 : mRandom.oneIn(8) ? mRandom.below(70'000) - 1000 : 7236;
    const char* const address = mRandom.oneIn(30) ? nullptr : kDirectPeer;
    const long allocated = mAccount.ofCommands(Event::Allocated);
    mAccount.takeCreateStatus();
    const bool wanted = !mRandom.oneIn(50);
    char* response = nullptr;
    const bool go = !discovers && mRandom.oneIn(3);
    const int result = (go ? connect_go_start_wfd : start_wfd_connection)(
        "", address, port, peerType, wanted ? &response : nullptr);
    const std::optional<int> status = mAccount.takeCreateStatus();
    const bool memory = mAccount.ofCommands(Event::Allocated) > allocated;
    require((result == -1) == (response == nullptr), "a start gives %d and the response %s", result,
            response == nullptr ? "null" : response);
    require(memory || result == -1, "a response without memory");
    if (response == nullptr) {
        if (memory) ++mTakenBack;
        if (status.value_or(-1) == 0) ++mTimedOut;
        return;
    }
    ++mResponses;
    require(result == status, "a start gives %d, its session client %d", result,
            status.value_or(-99));
    if (result == 0) ++mSessions;
    require(isIdentifier(response), "the identifier \"%s\"", response);
    free(response);
}

void Soak::command() {
    const int choice = mRandom.below(100);
    if (mRandom.oneIn(10)) mFaults.change();
    if (choice < 12) {
        reset();
    } else if (choice < 22) {
        preset();
    } else if (choice < 42) {
        start();
    } else if (choice < 87) {
        sendFrame();
    } else if (choice < 93) {
        execAction();
    } else {
        generateEvent();
    }
}

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

std::string Soak::started(int (*function)(const char*, const char*, int, int, char**), int port,
                          int peerType) {
    char* response = nullptr;
    const int result = function("", kDirectPeer, port, peerType, &response);
    require(result == 0 && response != nullptr, "the start on port %d as %s gives %d", port,
            peerType == 0 ? "sink" : "source", result);
    ++mResponses;
    ++mSessions;
    std::string text = response;
    free(response);
    return text;
}

void Soak::registered(const char* type) {
    const std::string text = hostplatform::format("mdns_disc,%s,mdns_role,responder,wfddevtype,%s",
                                                  *type == '\0' ? "disable" : "enable", type);
    char* response = nullptr;
    const int result = sta_preset_testparameters(text.c_str(), &response);
    const std::string name = response == nullptr ? "" : response;
    if (response != nullptr) ++mResponses;
    free(response);
    require(result == 0 && name == (*type == '\0' ? "" : kPeerName),
            "a registration as \"%s\" gives %d, \"%s\"", type, result, name.c_str());
}

void Soak::checkDirectSession() {
    const uint64_t mark = Journal::instance().mark();
    const std::string id = started(start_wfd_connection, 7236, 1);
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
    started(connect_go_start_wfd, 7236, 1);
    quiesce();
    const uint64_t mark = Journal::instance().mark();
    hostplatform::setTimeScale(kFast);
    require(sta_generate_event("Type,UIBC_Gen,UIBCEventType,KeyBoard") == 0, "UIBC");
    hostplatform::setTimeScale(kExact);
    const auto input = hostplatform::keyEvent('a', 0);
    require(hostplatform::injectInput(input), "an input is refused");
    require(Journal::instance().waitFor("tool", "input keyevent 29", mark).has_value(),
            "an input is not injected");
    require(myList.empty(), "inputs that nobody made");
    require(dev_send_frame("framename,RTSP,RtspMsgType,TEARDOWN") == 1, "TEARDOWN fails");
    quiesce();
    // The worker has ended; the library sets one up once in a process.
    uibc_setup_done = 0;
    uibc_complete_flag = 0;
    ++mOwnInputs;
    end();
}

void Soak::checkRegistration() {
    const long clients = mAccount.count(Event::ClientMade);
    registered("p-sink");
    require(SoakWorld::sendToSink(mAccount.ports().back(), std::string("\0\2\x1c\x45", 4)),
            "a registered sink cannot be triggered");
    quiesce();
    const auto session = currentSession();
    require(mAccount.count(Event::ClientMade) == clients + 1 && session &&
                session->peer.rtspPort == 7237 &&
                session->peer.ipAddress == std::string("127.0.0.1"),
            "a trigger does not make a session");
    end();
    registered("");
}

void Soak::checkDiscovery(bool asSource) {
    const Listener sink;
    mWorld.pause({kPeerName, kPeerAddress, sink.port()});
    started(start_wfd_connection, -100, asSource ? 1 : 0);
    const auto session = currentSession();
    require(session && session->peer.ipAddress == std::string(kPeerAddress) &&
                session->peer.rtspPort == (asSource ? 7236 : sink.port()),
            "the session with a discovered peer is with %s:%d",
            session ? session->peer.ipAddress : "nobody", session ? session->peer.rtspPort : 0);
    if (asSource) {
        require(sink.received() == std::string("\0\2\x1c\x44", 4), "no trigger");
    }
    quiesce();
    end();
    registered("");
}

// Everything that the library was handed has gone somewhere.
void Soak::checkJournal() {
    const auto all = [this](Event event) { return mAccount.count(event); };
    const auto mine = [this](Event event) { return mAccount.ofCommands(event); };
    const auto equal = [](long one, long other, const char* what) {
        require(one == other, "%s: %ld, %ld", what, one, other);
    };
    equal(all(Event::Allocated), mResponses + mTakenBack, "responses made, and accounted for");
    equal(mine(Event::SessionMade), mSessions + mTimedOut,
          "sessions of commands made, and started");
    equal(all(Event::ClientMade), all(Event::SessionAsked), "clients, and sessions asked for");
    equal(all(Event::SessionAsked) - mine(Event::SessionAsked) + all(Event::NoClient) -
              mine(Event::NoClient),
          all(Event::Triggered), "triggered starts, and triggers");
    require(all(Event::Triggered) <= all(Event::CommandRead), "triggers that nobody sent");
    equal(all(Event::Tool), all(Event::InputShown) + mShellCalls - failedCalls(SystemCall::Shell),
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

void Soak::endInputWorker() {
    const int32_t role = wfd_device_type.exchange(0);
    char teardown[2][256] = {"any", "TEARDOWN"};
    miracastWfdStringArrayCallback("any", 2, teardown, nullptr);
    wfd_device_type = role;
    uibc_setup_done = 0;
    uibc_complete_flag = 0;
}

// Everything comes to rest; then what must work is tried, and the books are balanced.
void Soak::round() {
    mWorld.pause({kPeerName, kPeerAddress, 1});
    mFaults.clear();
    hostplatform::setPeer(hostplatform::Peer::Answers);
    require(hostplatform::waitReported(), "reports do not end");
    endInputWorker();
    registered("");
    mObject = false;
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
    hostplatform::setTimeScale(5 * kExact);
    mAccount.learnSession(kTimes, [&] {
        times([this] {
            started(start_wfd_connection, 7236, 0);
            quiesce();
            end();
        });
    });
    const auto register1 = [&](const char* type) {
        times([&] {
            registered(type);
            registered("");
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
    const double minutes = std::chrono::duration<double>(Clock::now() - mBegin).count() / 60;
    const auto perMinute = static_cast<long>(static_cast<double>(mCommands) / minutes);
    fprintf(output, "%ld commands in %.1f minutes, %ld per minute, %ld recoveries\n", mCommands,
            minutes, perMinute, mRounds);
    fprintf(output, "%ld sessions by commands, %ld by triggers, %ld not up in time\n", mSessions,
            mAccount.count(Event::SessionMade) - mSessions - mTimedOut, mTimedOut);
    fprintf(output, "%ld discovery objects, %ld trigger servers, %ld of them ended\n",
            mAccount.count(Event::MonitorStarted),
            mAccount.count(Event::ServerMade) - mAccount.count(Event::ServerWithoutThread),
            mAccount.count(Event::ServerEnded));
    fprintf(output, "%ld responses, %ld inputs accepted, %ld shell tools, %ld rescans lost\n",
            mResponses, mWorld.inputsAccepted() + mOwnInputs, mAccount.count(Event::Tool),
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
        fprintf(output, "FAILED, seed %llu, command %ld: %s\n",
                static_cast<unsigned long long>(mOptions.seed), mCommands, violation.c_str());
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
        long roundEnd = kRoundCommands;
        double nextRound = 0;
        while (mProgress < 1) {
            alarm(300);
            runningCommand = ++mCommands;
            command();
            mProgress = std::chrono::duration<double>(Clock::now() - mBegin) / length;
            if (mCommands >= roundEnd && mProgress >= nextRound && mProgress < 1) {
                round();
                roundEnd = mCommands + kRoundCommands;
                nextRound = mProgress + 1.0 / kMostRounds;
            }
        }
        round();
        const std::chrono::duration<double> used = Clock::now() - mBegin;
        require(static_cast<double>(mCommands) >= mOptions.leastPerMinute * used.count() / 60,
                "fewer than %d commands per minute", mOptions.leastPerMinute);
    } catch (const Violation& found) {
        violation = found.text;
    }
    alarm(0);
    report(violation);
    return violation.empty();
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Gives the library mixed commands while everything around it fails at random.");
    app.add_option("--minutes", options.minutes, "how long")->check(CLI::PositiveNumber);
    app.add_option("--seed", options.seed, "which commands and faults (at first a random number)");
    app.add_option("--least-per-minute", options.leastPerMinute,
                   "fail with fewer commands than that");
    CLI11_PARSE(app, argc, argv);

    if (!allowDescriptors(kDescriptors)) {
        printf("skipped: %u descriptors are not allowed\n", kDescriptors);
        return kSkipped;
    }
    output = fdopen(dup(STDOUT_FILENO), "w");
    if (output == nullptr || freopen("/dev/null", "w", stdout) == nullptr) return 1;
    stderr = stdout;  // what the library prints; sanitizers write to the descriptor itself
    setvbuf(output, nullptr, _IOLBF, 0);
    fprintf(output, "seed %llu\n", static_cast<unsigned long long>(options.seed));
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    if (!hostplatform::installShellTools(hostplatform::shellToolsDirectory())) return 1;
    FakeDnsSd::instance().setJournalled(false);
    signal(SIGALRM, onAlarm);

    bool good = false;
    {
        Soak soak(options);
        good = soak.run();
        hostplatform::shutdownSessions();
    }
    return good ? 0 : 1;
}
