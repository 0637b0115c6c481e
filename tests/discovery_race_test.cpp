// The end of the discovery object while results of all its requests keep arriving.
//
// DISCOVERY_RACE_ROUNDS: how often, at first 200.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ChannelTest.h"
#include "FakeDnsSd.h"
#include "WfdDiscovery.h"
#include "android/log.h"
#include "osal/osal.h"

// The device's own log would put every line of every thread in order, and so keep from
// ThreadSanitizer what the library's own locks must do.
int __android_log_print(int, const char*, const char*, ...) { return 0; }
void osal_sleep_ms(uint32_t) {}

namespace {

constexpr std::chrono::seconds kPatience(60);
constexpr int kBothSinks = WFD_R2_PRIMARY_SINK | WFD_R2_SECONDARY_SINK;

FakeDnsSd& library() { return FakeDnsSd::instance(); }

std::atomic<bool> present{false};  // from before the object is made until it has been cleared
std::atomic<int> registered{0};    // how often each callback has been called
std::atomic<int> discovered{0};
std::atomic<int> located{0};

// Stays in the callback for a moment.
void useRecord(const MDnsWfdServiceInfo* info, std::atomic<int>& calls) {
    EXPECT_TRUE(present) << "a callback begins after the end";
    if (info != nullptr) {
        EXPECT_EQ(std::string(info->domain), "local.");
    }
    std::this_thread::yield();
    EXPECT_TRUE(present) << "the end came during a callback";
    ++calls;
}

void onRegistered(int /*result*/, const MDnsWfdServiceInfo* info) { useRecord(info, registered); }
void onLocated(int /*result*/, const MDnsWfdServiceInfo* info) { useRecord(info, located); }
void onDiscovered(int /*result*/, const MDnsWfdServiceInfo* info) {
    if (info != nullptr) mDnsResolveWfd(info, onLocated);
    useRecord(info, discovered);
}

// Answers whatever request there is, over and over.
class Daemon {
 public:
    Daemon() {
        library().onStart([this](DNSServiceRef ref, const std::string&) {
            const std::lock_guard lock(mMutex);
            mRequests.push_back(ref);
        });
        for (std::thread& thread : mThreads) thread = std::thread([this] { answer(); });
    }
    ~Daemon() {
        mEnded = true;
        for (std::thread& thread : mThreads) thread.join();
        library().onStart(nullptr);
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

 private:
    void answer() {
        FakeDnsSd::Result result;
        result.flags = kDNSServiceFlagsAdd;
        result.name = "A peer";
        result.type = "_display._tcp.";
        result.domain = "local.";
        result.target = "peer.local.";
        result.port = 7236;
        result.address = "192.168.49.2";
        for (unsigned turn = 0; !mEnded; ++turn) {
            std::vector<DNSServiceRef> requests;
            {
                const std::lock_guard lock(mMutex);
                requests = mRequests;
            }
            result.error = turn % 8 == 0 ? kDNSServiceErr_Unknown : kDNSServiceErr_NoError;
            std::vector<DNSServiceRef> gone;
            for (DNSServiceRef request : requests) {
                if (!library().answer(request, result)) gone.push_back(request);
            }
            forget(gone);
            std::this_thread::yield();
        }
    }
    void forget(const std::vector<DNSServiceRef>& gone) {
        const std::lock_guard lock(mMutex);
        for (DNSServiceRef request : gone) {
            for (size_t i = mRequests.size(); i-- > 0;) {
                if (mRequests[i] == request)
                    mRequests.erase(mRequests.begin() + static_cast<long>(i));
            }
        }
    }

    std::atomic<bool> mEnded{false};
    std::mutex mMutex;  // guards the requests
    std::vector<DNSServiceRef> mRequests;
    std::thread mThreads[2];
};

bool waitMore(const std::atomic<int>& calls, int more) {
    const int wanted = calls + more;
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (calls < wanted && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return calls >= wanted;
}

TEST(DiscoveryRace, NothingIsCalledAfterTheEnd) {
    const char* const text = getenv("DISCOVERY_RACE_ROUNDS");
    const int rounds = text == nullptr ? 200 : atoi(text);
    // The monitor of each object stays, with a socket pair, and so does a sink's trigger server.
    if (!allowDescriptors(static_cast<unsigned>(3 * rounds + 200))) {
        GTEST_SKIP() << "the limit of open files";
    }
    library().setJournalled(false);
    for (int round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
        const Daemon daemon;
        present = true;
        if (round % 2 == 0) {
            EXPECT_EQ(mDnsRegisterWfdSource("", 7236, onRegistered), 200);
        } else {
            EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, onRegistered), 200);
        }
        EXPECT_EQ(mDnsDiscoverWfd(kBothSinks, onDiscovered), 200);
        // The end meets another mixture of results in each round.
        EXPECT_TRUE(waitMore(registered, 1));
        if (round % 3 != 0) {
            EXPECT_TRUE(waitMore(discovered, round % 7));
        }
        if (round % 4 != 0) {
            EXPECT_TRUE(waitMore(located, round % 5));
        }
        for (int i = round % 4; i > 0; --i) {
            MDnsWfdServiceInfo another{0, "Another", "_display._tcp.", "", 0, "local."};
            mDnsResolveWfd(&another, onLocated);
            EXPECT_TRUE(waitMore(discovered, 1));
        }
        if (round % 5 == 0) mDnsStopWfdDiscovery();
        if (round % 6 == 0) mDnsUnregisterWfd();
        mDnsClearInstances();
        present = false;
        EXPECT_EQ(library().liveCount(), 0U) << "a request goes on after the end";
        EXPECT_EQ(library().takeViolations(), std::vector<std::string>{});
    }
    EXPECT_GT(located, 0);
}

}  // namespace
