#include "SoakWorld.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "Faults.h"
#include "SessionService.h"
#include "SoakAccount.h"

using hostplatform::Fault;

namespace {

struct DeviceFault {
    Fault fault;
    const char* name;
};
constexpr DeviceFault kDeviceFaults[] = {
    {Fault::CompositorConnection, "compositor connection"},
    {Fault::NoInternalDisplay, "no internal display"},
    {Fault::DisplayStateQuery, "display state"},
    {Fault::DisplayConfigQuery, "display configuration"},
    {Fault::LayerCreation, "layer"},
    {Fault::LayerHandle, "layer handle"},
    {Fault::LayerSurface, "layer surface"},
    {Fault::VirtualDisplayCreation, "virtual display"},
    {Fault::SessionClient, "session client"},
    {Fault::SessionCreation, "session"},
    {Fault::SessionControl, "session control"},
    {Fault::AudioRouting, "audio routing"},
    {Fault::Allocation, "response text"},
    {Fault::PropertyService, "property service"},
    {Fault::ThreadCreation, "thread of the device"},
};

struct CallFault {
    SystemCall call;
    int error;
    const char* name;
};
// calloc is not among them: without memory for its poll set a monitor ends the process, on purpose.
constexpr CallFault kCallFaults[] = {
    {SystemCall::Socket, EMFILE, "socket"},
    {SystemCall::SocketPair, EMFILE, "socketpair"},
    {SystemCall::Bind, EADDRINUSE, "bind"},
    {SystemCall::GetSockName, ENOBUFS, "getsockname"},
    {SystemCall::Listen, EADDRINUSE, "listen"},
    {SystemCall::Accept, ECONNABORTED, "accept4"},
    {SystemCall::Connect, ECONNREFUSED, "connect"},
    {SystemCall::Send, EPIPE, "send"},
    {SystemCall::Read, EIO, "read"},
    {SystemCall::Poll, ENOMEM, "poll"},
    {SystemCall::ThreadCreation, EAGAIN, "pthread_create"},
    {SystemCall::ReservedNew, ENOMEM, "new"},
    {SystemCall::Malloc, ENOMEM, "malloc"},
    {SystemCall::Realloc, ENOMEM, "realloc"},
    {SystemCall::Shell, EAGAIN, "system"},
};

constexpr int kMostFaultsAtOnce = 2;
// Each lost rescan may leave something in a monitor that nobody asks any more: few of them, so that
// they do not hide what is lost otherwise.
constexpr int kMostFailedSends = 30;

constexpr const char* kNames[] = {
    "A peer",
    "display",
    "displaysrc",
    "Name with \"quotes\" and \\ in it",
    "T\xc3\xa9l\xc3\xa9",
    "",
    "A name of 63 bytes, which is as long as a DNS label can become."};
// This host's addresses only: a connection to another one could wait for minutes.
constexpr const char* kAddresses[] = {"127.0.0.1", "127.0.0.1",
                                      "127.0.0.2", "::1",
                                      "fe80::1",   "2001:db8:1111:2222:3333:4444:5555:6666"};
constexpr int kClosedPort = 1;

const std::string kConnectTo7236("\x00\x02\x1c\x44", 4);
const std::string kBadTriggers[] = {std::string("\x00\x03\x1c\x44", 4),
                                    std::string("\x00\x02\x1c", 3), std::string("GET "),
                                    std::string()};

struct Report {
    const char* name;
    std::vector<std::string> objects;
};
// A producer's address is never one: the library has to believe that it is.
const Report kReports[] = {
    {"SessionState", {"STOPPED", "192.168.49.2", "7"}},
    {"SessionState", {"STANDBY", "", ""}},
    {"SessionState", {"NEGOTIATING", "", ""}},
    {"SessionState", {"NEGOTIATED", "", "123456789012345"}},
    {"SessionState", {"ESTABLISHED", "", "00000815"}},
    {"SessionState", {"ESTABLISHED", "", "no number"}},
    {"SessionState", {"ESTABLISHED", "", "99999999999999999999"}},
    {"StreamControlCompleted", {"7", "TEARDOWN"}},
    {"StreamControlCompleted", {"7", "PAUSE"}},
    {"StreamControlCompleted", {"7", "PLAY"}},
    {"Error", {"RTSPCloseCallback"}},
    {"Error", {}},
    {"MMEvent", {"MMStreamStarted", "1280", "720", "0", "0"}},
    {"MMEvent", {"MMStreamStarted", "wide", "high", "0", "0"}},
    {"MMEvent", {"MMStreamStarted", "1280", "720", "0", "99999999999999999999999"}},
    {"MMEvent", {"MMStreamStarted"}},
    {"AudioEvent", {"AudioProxyOpened"}},
    {"UIBCControlCompleted", {"ENABLED"}},
    {"Unheard of", {"", ""}},
    {"", {std::string(400, 'x'), std::string(256, 'y'), "z"}},
};

}  // namespace

void SoakFaults::change() {
    const std::lock_guard lock(mMutex);
    if (mOn >= kMostFaultsAtOnce || (mOn > 0 && mRandom.oneIn(2))) {
        hostplatform::clearFaults();
        for (auto& call : mCalls) call.reset();
        mOn = 0;
    } else {
        switchOn();
    }
}

void SoakFaults::switchOn() {
    if (mRandom.oneIn(2)) {
        const int index = mRandom.below(static_cast<int>(std::size(kDeviceFaults)));
        hostplatform::setFault(kDeviceFaults[index].fault, mRandom.oneIn(4) ? -5 : -1);
        ++mDeviceFaults[static_cast<size_t>(index)];
    } else {
        const CallFault& fault = mRandom.of(kCallFaults);
        auto& slot = mCalls[static_cast<size_t>(fault.call)];
        const bool used =
            fault.call == SystemCall::Send && failedCalls(SystemCall::Send) >= kMostFailedSends;
        if (slot || used) return;
        slot.emplace(fault.call, fault.error, 1 + mRandom.below(3));
    }
    ++mOn;
}

void SoakFaults::clear() {
    const std::lock_guard lock(mMutex);
    hostplatform::clearFaults();
    for (auto& call : mCalls) call.reset();
    mOn = 0;
}

std::vector<std::pair<const char*, int>> SoakFaults::counts() const {
    std::vector<std::pair<const char*, int>> counts;
    const std::lock_guard lock(mMutex);
    for (size_t i = 0; i < std::size(kDeviceFaults); ++i) {
        counts.emplace_back(kDeviceFaults[i].name, mDeviceFaults[i]);
    }
    for (const CallFault& fault : kCallFaults) {
        counts.emplace_back(fault.name, failedCalls(fault.call));
    }
    return counts;
}

SoakWorld::SoakWorld(uint64_t seed, SoakFaults& faults, const SoakAccount& account)
    : mFaults(faults), mAccount(account), mRandom(seed) {
    FakeDnsSd::instance().onStart(
        [this](DNSServiceRef ref, const std::string& name) { onStart(ref, name); });
    mThreads[0] = std::thread([this, seed] { run(seed + 1, 4, &SoakWorld::answerOne); });
    mThreads[1] = std::thread([this, seed] { run(seed + 2, 12, &SoakWorld::act); });
}

SoakWorld::~SoakWorld() {
    {
        const std::lock_guard lock(mMutex);
        mEnded = true;
        mChanged.notify_all();
    }
    for (std::thread& thread : mThreads) thread.join();
    FakeDnsSd::instance().onStart(nullptr);
}

void SoakWorld::pause(Peer peer) {
    std::unique_lock lock(mMutex);
    mPaused = true;
    mPeer = std::move(peer);
    mRequests.clear();
    mChanged.wait(lock, [this] { return mActing == 0; });
    FakeDnsSd::failNextCall(kDNSServiceErr_NoError);
}

void SoakWorld::resume() {
    const std::lock_guard lock(mMutex);
    mPaused = false;
    mChanged.notify_all();
}

// Does something again and again, at random intervals of up to so many milliseconds.
void SoakWorld::run(uint64_t seed, int mostMilliseconds, void (SoakWorld::*something)(Random&)) {
    Random random(seed);
    std::unique_lock lock(mMutex);
    while (true) {
        mChanged.wait_for(lock, std::chrono::milliseconds(random.below(mostMilliseconds + 1)),
                          [this] { return mEnded; });
        mChanged.wait(lock, [this] { return mEnded || !mPaused; });
        if (mEnded) return;
        ++mActing;
        lock.unlock();
        (this->*something)(random);
        lock.lock();
        --mActing;
        mChanged.notify_all();
    }
}

FakeDnsSd::Result SoakWorld::randomResult(Random& random) const {
    FakeDnsSd::Result result;
    if (random.oneIn(10)) result.error = kDNSServiceErr_Unknown;
    result.flags = random.oneIn(8) ? 0 : kDNSServiceFlagsAdd;
    result.name = random.of(kNames);
    result.type = random.oneIn(2) ? "_display._tcp." : "_displaysrc._tcp.";
    result.domain = "local.";
    result.target = "peer.local.";
    result.address = random.of(kAddresses);
    const std::vector<int> ports = mAccount.ports();
    const bool known = !ports.empty() && random.oneIn(2);
    result.port = static_cast<uint16_t>(
        known ? ports[static_cast<size_t>(random.below(static_cast<int>(ports.size())))]
              : kClosedPort);
    result.txt.assign(static_cast<size_t>(random.below(60)), 'x');
    return result;
}

// On the thread that makes the request: the command thread's or a monitor's.
void SoakWorld::onStart(DNSServiceRef ref, const std::string& name) {
    FakeDnsSd& library = FakeDnsSd::instance();
    const std::lock_guard lock(mMutex);
    if (mPaused) {
        if (mPeer.name.empty()) return;
        FakeDnsSd::Result result;
        result.flags = kDNSServiceFlagsAdd;
        result.name = mPeer.name;
        result.type = name;
        result.domain = "local.";
        result.target = "peer.local.";
        result.address = mPeer.address;
        result.port = static_cast<uint16_t>(mPeer.port);
        library.answer(ref, result);
        return;
    }
    if (mRandom.oneIn(2)) library.answer(ref, randomResult(mRandom));
    if (mRandom.oneIn(20)) FakeDnsSd::failNextCall(kDNSServiceErr_Unknown);
    mRequests.push_back(ref);
    if (mRequests.size() > 16) mRequests.pop_front();
}

// One request has a result more, or its end.
void SoakWorld::answerOne(Random& random) {
    FakeDnsSd& library = FakeDnsSd::instance();
    DNSServiceRef request{};
    {
        const std::lock_guard lock(mMutex);
        if (mRequests.empty()) return;
        request = mRequests[static_cast<size_t>(random.below(static_cast<int>(mRequests.size())))];
    }
    bool alive = true;
    if (random.oneIn(40)) {
        alive = library.breakConnection(request);
    } else if (random.oneIn(40)) {
        library.loseSocket(request);
    } else {
        alive = library.answer(request, randomResult(random));
    }
    if (alive) return;
    const std::lock_guard lock(mMutex);
    mRequests.erase(std::remove(mRequests.begin(), mRequests.end(), request), mRequests.end());
}

void SoakWorld::act(Random& random) {
    const int choice = random.below(100);
    if (choice < 45) {
        mFaults.change();
    } else if (choice < 60) {
        const std::vector<int> ports = mAccount.ports();
        if (ports.empty()) return;
        // Rather a recent one: the older ones have ended more often.
        const int newest = std::min(static_cast<int>(ports.size()), random.oneIn(4) ? 1000 : 3);
        const int port = ports[ports.size() - 1 - static_cast<size_t>(random.below(newest))];
        sendToSink(port, random.oneIn(8) ? random.of(kBadTriggers) : kConnectTo7236);
    } else if (choice < 70) {
        const auto action = static_cast<uint32_t>(random.below(4));
        const bool accepted = hostplatform::injectInput(
            random.oneIn(2)
                ? hostplatform::touchEvent(action)
                : hostplatform::keyEvent(static_cast<uint16_t>(random.below(300)), action));
        if (accepted) ++mInputsAccepted;
    } else if (choice < 85) {
        const Report& report = random.of(kReports);
        hostplatform::report(report.name, report.objects);
    } else {
        using hostplatform::Peer;
        constexpr Peer kPeers[] = {Peer::Answers, Peer::Answers, Peer::Answers, Peer::Answers,
                                   Peer::Answers, Peer::Silent,  Peer::Refuses, Peer::Late};
        hostplatform::setPeer(random.of(kPeers));
    }
}

bool SoakWorld::sendToSink(int port, const std::string& bytes) {
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connection < 0) return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    const timeval patience{20, 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    bool closed = false;
    if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        sendto(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL, nullptr, 0) ==
            static_cast<ssize_t>(bytes.size())) {  // send() may be failing
        shutdown(connection, SHUT_WR);
        char byte = 0;
        closed = recv(connection, &byte, 1, 0) == 0;
    }
    close(connection);
    return closed;
}
