// The DNS-SD command channel, on the DNS-SD client library of the tests.
#include <dns_sd.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <thread>

#include "Arrivals.h"
#include "FakeDnsSd.h"
#include "MDnsSdChannel.h"
#include "android/log.h"

namespace {

constexpr const char* kType = "_display._tcp";

class Listener : public MDnsResultListener {
 public:
    explicit Listener(Arrivals& arrivals) : mArrivals(arrivals) {}
    int sendMsg(int, const char*, bool) override { return 0; }
    int sendBroadcast(int, const char*, bool) override { return 0; }
    // The last of the two calls for a result.
    void onDiscoverResult(int, const char*, const char*, const char*) override {
        mArrivals.arrived();
    }
    void onRegisterResult(int, const char*, const char*, const char*) override {}
    void onResolveResult(int, const char*, const char*, int, int, const unsigned char*) override {}
    void onGetAddrResult(int, const char*, const char*) override {}

 private:
    Arrivals& mArrivals;
};

class Channel {
 public:
    int start() {
        give(4, "discover", ++mLastId);
        return mLastId;
    }
    void stop(int id) { give(3, "stop-discover", id); }
    Arrivals& arrivals() { return mArrivals; }

 private:
    void give(int count, const char* word, int id) {
        char number[16];
        snprintf(number, sizeof number, "%d", id);
        const char* const words[] = {"1", word, number, kType};
        mChannel.runCommand(count, const_cast<char**>(words));
    }

    Arrivals mArrivals;
    Listener mListener{mArrivals};
    MDnsSdChannel mChannel{&mListener};
    int mLastId = 0;
};

template <typename... Arguments>
void log(const char* pattern, Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    __android_log_print(ANDROID_LOG_DEBUG, "MDnsDS", pattern, arguments...);
#pragma GCC diagnostic pop
}

// The least that gives an agent the same of one request at a time: a thread that polls it and is
// told by a byte of each start and stop, the channel's log lines, answers and result lines. It has
// no table, quotes nothing, and a daemon that goes ends the process with SIGPIPE.
class BareChannel {
 public:
    BareChannel() {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mControl) == 0) {
            mThread = std::thread([this] { run(); });
        }
    }
    ~BareChannel() {
        shutdown(mControl[1], SHUT_WR);
        if (mThread.joinable()) mThread.join();
        for (const int end : mControl) close(end);
    }
    BareChannel(const BareChannel&) = delete;
    BareChannel& operator=(const BareChannel&) = delete;

    int start() {
        log("discover(%s, %s, %s, %d, %d)", "null", kType, "null", 1, 0);
        log("using ref %p", static_cast<void*>(&mRef));
        DNSServiceRef ref = nullptr;
        DNSServiceBrowse(&ref, 0, 0, kType, nullptr, found, this);
        log("startMonitoring %d", 1);
        set(ref);
        log("discover successful");
        mListener.sendMsg(kMDnsDone, "Discover operation started", false);
        return 1;
    }
    void stop(int id) {
        const DNSServiceRef ref = mRef;
        log("Stopping %s with ref %p", "discover", static_cast<void*>(&mRef));
        log("freeServiceRef %d", id);
        set(nullptr);
        DNSServiceRefDeallocate(ref);
        char text[64];
        snprintf(text, sizeof text, "%s stopped", "discover");
        mListener.sendMsg(kMDnsDone, text, false);
    }
    Arrivals& arrivals() { return mArrivals; }

 private:
    static void found(DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType,
                      const char* name, const char* type, const char* domain, void* channel) {
        log("Discover %s serviceName %s, regType %s and domain %s for %d", "found new", name, type,
            domain, 1);
        char line[512];
        snprintf(line, sizeof line, "%d \"%s\" %s %s", 1, name, type, domain);
        MDnsResultListener& listener = static_cast<BareChannel*>(channel)->mListener;
        listener.sendBroadcast(kMDnsServiceFound, line, false);
        listener.onDiscoverResult(0, name, type, domain);
    }

    void set(DNSServiceRef ref) {
        {
            const std::lock_guard lock(mMutex);
            mRef = ref;
        }
        send(mControl[1], "1", 1, MSG_DONTWAIT | MSG_NOSIGNAL);
        log("triggering rescan");
    }

    void run() {
        DNSServiceRef ref = nullptr;
        pollfd polled[] = {{mControl[0], POLLIN, 0}, {-1, POLLIN, 0}};
        while (true) {
            log("Going to poll with pollCount %d", 2);
            const int count = poll(polled, 2, -1);
            log("Monitor poll got data pollCount = %d, %d", 2, count);
            if (polled[1].revents != 0) {
                log("Monitor found [%d].revents = %d - calling ProcessResults", 1, 1);
                DNSServiceProcessResult(ref);
            }
            log("controlSocket shows revent= %d", polled[0].revents);
            if (polled[0].revents == 0) continue;
            char byte = 0;
            if (read(mControl[0], &byte, 1) != 1) return;
            log("MDnsSdChannel::Monitor got %c", byte);
            log("MDnsSdChannel::Monitor poll rescanning - size=%d, live=%d", 10, 1);
            const std::lock_guard lock(mMutex);
            ref = mRef;
            polled[1].fd = ref == nullptr ? -1 : DNSServiceRefSockFD(ref);
        }
    }

    Arrivals mArrivals;
    Listener mListener{mArrivals};
    int mControl[2] = {-1, -1};
    std::mutex mMutex;
    DNSServiceRef mRef = nullptr;
    std::thread mThread;
};

FakeDnsSd& dnsSd() { return FakeDnsSd::instance(); }

void answer(DNSServiceRef ref) {
    FakeDnsSd::Result result;
    result.flags = kDNSServiceFlagsAdd;
    result.name = "Living room display";
    result.type = "_display._tcp.";
    result.domain = "local.";
    dnsSd().answer(ref, result);
}

// Results that are all there before the first of them is taken.
template <typename AnyChannel>
double burst(AnyChannel& channel, int count) {
    const int id = channel.start();
    const DNSServiceRef ref = dnsSd().newest();
    Arrivals& arrivals = channel.arrivals();
    arrivals.expect(1, true);
    answer(ref);
    arrivals.wait();
    for (int i = 0; i < count; ++i) answer(ref);
    arrivals.expect(count);
    const auto begin = Clock::now();
    arrivals.release();
    const std::chrono::duration<double> taken = arrivals.wait() - begin;
    channel.stop(id);
    return taken.count();
}

template <typename AnyChannel>
double startsAndStops(AnyChannel& channel, int count) {
    const double taken = timed([&] {
        for (int i = 0; i < count; ++i) channel.stop(channel.start());
    });
    burst(channel, 1);  // waits for the channel's thread
    return taken;
}

template <double (*Measure)(Channel&, int), double (*MeasureBare)(BareChannel&, int)>
void measure(benchmark::State& state, int count) {
    dnsSd().journalled = false;
    static auto* const channel = new Channel;  // its thread stays
    static BareChannel bare;
    compare(
        state, count, 1.25, [=] { return Measure(*channel, count); },
        [=] { return MeasureBare(bare, count); });
}

void startAndStop(benchmark::State& state) { measure<startsAndStops, startsAndStops>(state, 100); }
void burstOf1000(benchmark::State& state) { measure<burst, burst>(state, 1000); }
BENCHMARK(startAndStop)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(burstOf1000)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
