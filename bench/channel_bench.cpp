// The DNS-SD command channel, on the DNS-SD library of the tests.
#include <dns_sd.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Arrivals.h"
#include "Benchmarks.h"
#include "FakeDnsSd.h"
#include "MDnsSdChannel.h"
#include "TextFormat.h"

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

// The least that brings results: a thread that polls one request's socket.
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
                        DNSServiceErrorType /*error*/, const char* /*name*/, const char* /*type*/,
                        const char* /*domain*/, void* context) {
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

void startAndStop(State& state) {
    Channel& channel = Channel::instance();
    for (auto _ : state) {
        const int id = channel.newId();
        channel.start(id);
        channel.stop(id);
    }
    if (channel.refused()) state.SkipWithError("a command was refused");
    const Outstanding last(1);  // whose end waits for the monitor
}

void callDirectly(State& state) {
    for (auto _ : state) {
        DNSServiceRef ref = nullptr;
        DNSServiceBrowse(&ref, 0, 0, "_display._tcp", nullptr, MDnsSdListenerDiscoverCallback,
                         nullptr);
        DNSServiceRefDeallocate(ref);
    }
}

// One result for a thread that sleeps.
void measureResult(State& state, DNSServiceRef ref, Arrivals& arrivals) {
    const FakeDnsSd::Result result = someResult();
    for (auto _ : state) {
        arrivals.waitAsleep();
        arrivals.expect(1);
        const auto begin = Arrivals::Clock::now();
        dnsSd().answer(ref, result);
        state.SetIterationTime(seconds(arrivals.wait() - begin));
    }
}

// Results that are all there before the first of them is taken.
void measureBurst(State& state, DNSServiceRef ref, Arrivals& arrivals) {
    const FakeDnsSd::Result result = someResult();
    for (auto _ : state) {
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

template <void (*Measure)(State&, DNSServiceRef, Arrivals&)>
void onBareLoop(State& state) {
    BareLoop loop;
    loop.arrivals().expect(1);
    dnsSd().answer(loop.ref(), someResult());
    loop.arrivals().wait();
    Measure(state, loop.ref(), loop.arrivals());
}

void startOne(State& state, int outstanding) {
    Outstanding others(outstanding);
    Channel& channel = Channel::instance();
    for (auto _ : state) {
        const int id = channel.newId();
        const auto begin = Arrivals::Clock::now();
        channel.start(id);
        state.SetIterationTime(seconds(Arrivals::Clock::now() - begin));
        others.settle();
        channel.stop(id);
        others.settle();
        channel.arrivals().waitAsleep();
    }
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
    for (auto _ : state) {
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

    benchmark::RegisterBenchmark("result/ours", onChannel<measureResult>)->UseManualTime();
    benchmark::RegisterBenchmark("result/yardstick", onBareLoop<measureResult>)->UseManualTime();
    table.add("readable socket to listener", {"result/ours", "", ""}, "bare poll loop",
              {"result/yardstick", "", ""}, {Aim::Kind::Ratio, 2});

    benchmark::RegisterBenchmark("burst/ours", onChannel<measureBurst>)->UseManualTime();
    benchmark::RegisterBenchmark("burst/yardstick", onBareLoop<measureBurst>)->UseManualTime();
    table.add(format("burst of %d results", kBurst), {"burst/ours", "", ""}, "bare poll loop",
              {"burst/yardstick", "", ""}, {Aim::Kind::Ratio, 2});

    for (const int outstanding : {10, 100, 1000}) {
        const std::string name = format("start with %d", outstanding);
        benchmark::RegisterBenchmark(name.c_str(), startOne, outstanding)
            ->UseManualTime()
            ->Iterations(100);
        const Figure first = outstanding == 10 ? Figure{} : Figure{"start with 10", "", ""};
        table.add(format("start a request, %d outstanding", outstanding), {name, "", ""},
                  outstanding == 10 ? "" : "10 outstanding", first, {});
    }

    benchmark::RegisterBenchmark("idle", idle)->Iterations(1)->Repetitions(1);
    table.add(format("idle 10 s, %d outstanding", kIdleRequests), {"idle", "switches", "wake-ups"},
              "", {}, {Aim::Kind::Figure, 0});
}
