// The DNS-SD command channel, on the DNS-SD library of the tests.
#include <dns_sd.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Arrivals.h"
#include "Benchmarks.h"
#include "FakeDnsSd.h"
#include "MDnsSdChannel.h"
#include "TextFormat.h"
#include "android/log.h"

namespace {

using benchmark::State;
using hostplatform::format;

constexpr int kBurst = 1000;
constexpr int kIdleRequests = 1000;

FakeDnsSd& dnsSd() { return FakeDnsSd::instance(); }

FakeDnsSd::Result someResult() {
    FakeDnsSd::Result result;
    result.flags = kDNSServiceFlagsAdd;
    result.name = "Living room display";
    result.type = "_display._tcp.";
    result.domain = "local.";
    return result;
}

class Listener : public MDnsResultListener {
 public:
    int sendMsg(int code, const char* /*message*/, bool /*flag*/) override {
        if (code != kMDnsDone) mRefused = true;
        return 0;
    }
    int sendBroadcast(int /*code*/, const char* /*message*/, bool /*flag*/) override { return 0; }
    // The last of the two calls for a result.
    void onDiscoverResult(int /*code*/, const char* /*serviceName*/, const char* /*regType*/,
                          const char* /*domain*/) override {
        mArrivals.arrived();
    }
    void onRegisterResult(int /*code*/, const char* /*serviceName*/, const char* /*regType*/,
                          const char* /*domain*/) override {}
    void onResolveResult(int /*code*/, const char* /*fullName*/, const char* /*hostTarget*/,
                         int /*port*/, int /*txtLen*/,
                         const unsigned char* /*txtRecord*/) override {}
    void onGetAddrResult(int /*code*/, const char* /*hostname*/, const char* /*address*/) override {
    }

    Arrivals mArrivals;
    bool mRefused = false;  // on the benchmark's thread
};

// The channel of all benchmarks, whose monitor stays until the process ends. Each leaves it without
// requests and asleep.
class Channel {
 public:
    static Channel& instance() {
        static auto* const channel = new Channel;
        return *channel;
    }

    void start(int requestId) { give("discover", requestId, "_display._tcp"); }
    void stop(int requestId) { give("stop-discover", requestId, nullptr); }
    int newId() { return ++mLastId; }
    // Starts one and returns its reference.
    DNSServiceRef browse(int requestId) {
        start(requestId);
        return dnsSd().newest();
    }
    Arrivals& arrivals() { return mListener.mArrivals; }
    bool refused() const { return mListener.mRefused; }

    // Waits until the monitor has rescanned for all that was started and stopped before, of which
    // there may be one: a first result may come before the rescan, a second one not.
    void settle(DNSServiceRef ref) {
        for (int i = 0; i < 2; ++i) {
            arrivals().expect(1);
            dnsSd().answer(ref, someResult());
            arrivals().wait();
        }
    }

 private:
    void give(const char* word, int requestId, const char* type) {
        char id[16];
        snprintf(id, sizeof id, "%d", requestId);
        const char* const words[] = {"1", word, id, type};
        mChannel.runCommand(type == nullptr ? 3 : 4, const_cast<char**>(words));
    }

    Listener mListener;
    MDnsSdChannel mChannel{&mListener};
    int mLastId = 0;
};

// Requests that wait while something is measured; the first one tells when the monitor is through.
class Outstanding {
 public:
    explicit Outstanding(int count) {
        for (int i = 0; i < count; ++i) {
            mIds.push_back(mChannel.newId());
            const DNSServiceRef ref = mChannel.browse(mIds.back());
            if (mFirst == nullptr) mFirst = ref;
            settle();
        }
    }
    ~Outstanding() {
        for (size_t i = mIds.size(); i > 1; --i) {
            mChannel.stop(mIds[i - 1]);
            settle();
        }
        mChannel.stop(mIds.front());
        mChannel.arrivals().waitAsleep();
    }
    Outstanding(const Outstanding&) = delete;
    Outstanding& operator=(const Outstanding&) = delete;

    void settle() { mChannel.settle(mFirst); }

 private:
    Channel& mChannel = Channel::instance();
    std::vector<int> mIds;
    DNSServiceRef mFirst = nullptr;
};

// The log lines that the channel writes for a result.
void logResult(const char* name, const char* type, const char* domain) {
    constexpr const char* kTag = "MDnsDS";
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "Going to poll with pollCount %d", 2);
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "Monitor poll got data pollCount = %d, %d", 2, 1);
    __android_log_print(ANDROID_LOG_DEBUG, kTag,
                        "Monitor found [%d].revents = %d - calling ProcessResults", 1, 1);
    __android_log_print(ANDROID_LOG_DEBUG, kTag,
                        "Discover found new serviceName %s, regType %s and domain %s for %d", name,
                        type, domain, 1);
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "controlSocket shows revent= %d", 0);
}

// The least that brings results: a thread that polls one request's socket.
template <bool Logging>
class BareLoop {
 public:
    BareLoop() : mEnd(eventfd(0, EFD_CLOEXEC)) {
        DNSServiceBrowse(&mRef, 0, 0, "_display._tcp", nullptr, arrived, &mArrivals);
        mThread = std::thread([this] { run(); });
    }
    ~BareLoop() {
        eventfd_write(mEnd, 1);
        mThread.join();
        DNSServiceRefDeallocate(mRef);
        close(mEnd);
    }
    BareLoop(const BareLoop&) = delete;
    BareLoop& operator=(const BareLoop&) = delete;

    DNSServiceRef ref() const { return mRef; }
    Arrivals& arrivals() { return mArrivals; }

 private:
    static void arrived(DNSServiceRef /*ref*/, DNSServiceFlags /*flags*/, uint32_t /*interface*/,
                        DNSServiceErrorType /*error*/, const char* name, const char* type,
                        const char* domain, void* context) {
        if (Logging) logResult(name, type, domain);
        static_cast<Arrivals*>(context)->arrived();
    }

    void run() {
        pollfd polled[] = {{mEnd, POLLIN, 0}, {DNSServiceRefSockFD(mRef), POLLIN, 0}};
        while (poll(polled, 2, -1) > 0 && polled[0].revents == 0) {
            if (polled[1].revents != 0) DNSServiceProcessResult(mRef);
        }
    }

    const int mEnd;
    Arrivals mArrivals;
    DNSServiceRef mRef = nullptr;
    std::thread mThread;
};

// A thread that is told of something by a byte each, and does nothing about it.
class ToldThread {
 public:
    ToldThread() {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mSockets) != 0) return;
        mThread = std::thread([this] { run(); });
    }
    ~ToldThread() {
        shutdown(mSockets[1], SHUT_WR);
        if (mThread.joinable()) mThread.join();
        for (const int end : mSockets) close(end);
    }
    ToldThread(const ToldThread&) = delete;
    ToldThread& operator=(const ToldThread&) = delete;

    void tell() const { send(mSockets[1], "1", 1, MSG_DONTWAIT | MSG_NOSIGNAL); }

 private:
    void run() const {
        char byte = 0;
        pollfd polled{mSockets[0], POLLIN, 0};
        while (poll(&polled, 1, -1) > 0 && read(mSockets[0], &byte, 1) == 1) {
        }
    }

    int mSockets[2] = {-1, -1};
    std::thread mThread;
};

void startAndStop(State& state) {
    Channel& channel = Channel::instance();
    while (state.KeepRunning()) {
        const int id = channel.newId();
        channel.start(id);
        channel.stop(id);
    }
    if (channel.refused()) state.SkipWithError("a command was refused");
    const Outstanding last(1);  // whose end waits for the monitor
}

void callDirectly(State& state) {
    while (state.KeepRunning()) {
        DNSServiceRef ref = nullptr;
        DNSServiceBrowse(&ref, 0, 0, "_display._tcp", nullptr, MDnsSdListenerDiscoverCallback,
                         nullptr);
        DNSServiceRefDeallocate(ref);
    }
}

void callAndTell(State& state) {
    const ToldThread thread;
    while (state.KeepRunning()) {
        DNSServiceRef ref = nullptr;
        DNSServiceBrowse(&ref, 0, 0, "_display._tcp", nullptr, MDnsSdListenerDiscoverCallback,
                         nullptr);
        thread.tell();
        DNSServiceRefDeallocate(ref);
        thread.tell();
    }
}

// One result for a thread that sleeps.
void measureResult(State& state, DNSServiceRef ref, Arrivals& arrivals) {
    const Apart apart(arrivals.thread());
    const FakeDnsSd::Result result = someResult();
    while (state.KeepRunning()) {
        arrivals.waitAsleep();
        arrivals.expect(1);
        const auto begin = Arrivals::Clock::now();
        dnsSd().answer(ref, result);
        state.SetIterationTime(seconds(arrivals.wait() - begin));
    }
}

// Results that are all there before the first of them is taken.
void measureBurst(State& state, DNSServiceRef ref, Arrivals& arrivals) {
    const Apart apart(arrivals.thread());
    const FakeDnsSd::Result result = someResult();
    while (state.KeepRunning()) {
        arrivals.hold();
        dnsSd().answer(ref, result);
        arrivals.waitHeld();
        for (int i = 0; i < kBurst; ++i) dnsSd().answer(ref, result);
        arrivals.expect(kBurst);
        const auto begin = Arrivals::Clock::now();
        arrivals.release();
        state.SetIterationTime(seconds(arrivals.wait() - begin));
    }
}

template <void (*Measure)(State&, DNSServiceRef, Arrivals&)>
void onChannel(State& state) {
    Channel& channel = Channel::instance();
    const int id = channel.newId();
    const DNSServiceRef ref = channel.browse(id);
    channel.settle(ref);
    Measure(state, ref, channel.arrivals());
    channel.stop(id);
    channel.arrivals().waitAsleep();
}

template <void (*Measure)(State&, DNSServiceRef, Arrivals&), bool Logging = false>
void onBareLoop(State& state) {
    BareLoop<Logging> loop;
    loop.arrivals().expect(1);
    dnsSd().answer(loop.ref(), someResult());
    loop.arrivals().wait();
    Measure(state, loop.ref(), loop.arrivals());
}

void startOne(State& state, int outstanding) {
    Outstanding others(outstanding);
    Channel& channel = Channel::instance();
    std::vector<double> nanoseconds;
    while (state.KeepRunning()) {
        const int id = channel.newId();
        const auto begin = Arrivals::Clock::now();
        channel.start(id);
        nanoseconds.push_back(seconds(Arrivals::Clock::now() - begin) * 1e9);
        others.settle();
        channel.stop(id);
        others.settle();
        channel.arrivals().waitAsleep();
    }
    // In some starts the scheduler lets the woken monitor go first, which the mean would be made
    // of.
    const auto middle = nanoseconds.begin() + static_cast<std::ptrdiff_t>(nanoseconds.size() / 2);
    std::nth_element(nanoseconds.begin(), middle, nanoseconds.end());
    state.counters["median"] = *middle;
    if (channel.refused()) state.SkipWithError("a command was refused");
}

// How often a thread was run.
long switchesOf(pid_t thread) {
    std::ifstream status(format("/proc/self/task/%d/status", thread));
    long switches = 0;
    for (std::string key; status >> key;) {
        long value = 0;
        if (key != "voluntary_ctxt_switches:" && key != "nonvoluntary_ctxt_switches:") continue;
        status >> value;
        switches += value;
    }
    return switches;
}

void idle(State& state) {
    Outstanding requests(kIdleRequests);
    Arrivals& arrivals = Channel::instance().arrivals();
    arrivals.waitAsleep();
    while (state.KeepRunning()) {
        const long before = switchesOf(arrivals.thread());
        std::this_thread::sleep_for(std::chrono::seconds(10));  // this is what is measured
        const long after = switchesOf(arrivals.thread());
        state.counters["switches"] = static_cast<double>(after - before);
        requests.settle();
        arrivals.waitAsleep();
        if (switchesOf(arrivals.thread()) == after) {
            state.SkipWithError("wake-ups are not seen");
        }
    }
}

}  // namespace

void addChannelBenchmarks(Table& table) {
    benchmark::RegisterBenchmark("request/ours", startAndStop)->UseRealTime();
    benchmark::RegisterBenchmark("request/yardstick", callDirectly)->UseRealTime();
    table.add("start and stop a request", {"request/ours", "", ""}, "the two DNS-SD calls",
              {"request/yardstick", "", ""}, {Aim::Kind::Difference, 10'000});

    benchmark::RegisterBenchmark("request/told", callAndTell)->UseRealTime();
    table.add("start and stop a request", {"request/ours", "", ""},
              "and a polling thread told of each", {"request/told", "", ""}, {});

    benchmark::RegisterBenchmark("result/ours", onChannel<measureResult>)->UseManualTime();
    benchmark::RegisterBenchmark("result/yardstick", onBareLoop<measureResult>)->UseManualTime();
    table.add("readable socket to listener", {"result/ours", "", ""}, "bare poll loop",
              {"result/yardstick", "", ""}, {Aim::Kind::Ratio, 2});

    benchmark::RegisterBenchmark("burst/ours", onChannel<measureBurst>)->UseManualTime();
    benchmark::RegisterBenchmark("burst/yardstick", onBareLoop<measureBurst>)->UseManualTime();
    table.add(format("burst of %d results", kBurst), {"burst/ours", "", ""}, "bare poll loop",
              {"burst/yardstick", "", ""}, {Aim::Kind::Ratio, 2});
    benchmark::RegisterBenchmark("burst/logging", onBareLoop<measureBurst, true>)->UseManualTime();
    table.add(format("burst of %d results", kBurst), {"burst/ours", "", ""},
              "and the same 5 log lines for each", {"burst/logging", "", ""}, {});

    for (const int outstanding : {10, 100, 1000}) {
        const std::string name = format("start with %d", outstanding);
        benchmark::RegisterBenchmark(name.c_str(), startOne, outstanding)->Iterations(100);
        const Figure first = outstanding == 10 ? Figure{} : Figure{"start with 10", "median", "ns"};
        table.add(format("start a request, %d outstanding", outstanding), {name, "median", "ns"},
                  outstanding == 10 ? "" : "10 outstanding", first, {});
    }

    benchmark::RegisterBenchmark("idle", idle)->Iterations(1)->Repetitions(1);
    table.add(format("idle 10 s, %d outstanding", kIdleRequests), {"idle", "switches", "wake-ups"},
              "", {}, {Aim::Kind::Figure, 0});
}
