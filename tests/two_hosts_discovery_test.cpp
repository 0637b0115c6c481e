// Discovery by the library in this process, with another device on the peer host: what it leaves
// behind, and how fast it is.
//
// TWO_HOSTS_ROUNDS: how often the latter is measured, at first 9.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "AgentProcess.h"
#include "Clock.h"
#include "Journal.h"
#include "PlainDnsSd.h"
#include "RealDaemon.h"
#include "SessionService.h"
#include "TestDevice.h"
#include "miracast_sigma.h"

// Of the sanitizers, which bring an allocator of their own.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace {

using hostplatform::Journal;
using hostplatform::setTimeScale;

// A registration takes the daemon a second of real time.
constexpr double kPatient = 1;
constexpr double kHasty = 100;
constexpr double kDiscovering = 10;

class TwoHostsDiscoveryTest : public RealDaemonTest {
 protected:
    void SetUp() override {
        RealDaemonTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        ASSERT_TRUE(mPeer.start());
    }
    void TearDown() override {
        resetmDNSParams();
        EXPECT_TRUE(hostplatform::waitReported());
        RealDaemonTest::TearDown();
    }

    const RealDaemon& peer() const { return mPeer; }

 private:
    RealDaemon mPeer{Host::Peer, "other"};
};

struct Usage {
    long threads;
    long descriptors;

    bool operator==(const Usage& other) const {
        return threads == other.threads && descriptors == other.descriptors;
    }
    static long entriesOf(const char* directory) {
        return std::distance(std::filesystem::directory_iterator(directory), {});
    }
    static Usage now() { return {entriesOf("/proc/self/task"), entriesOf("/proc/self/fd")}; }
};

std::size_t allocatedBytes() {
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        return __sanitizer_get_current_allocated_bytes();
    }
    return mallinfo2().uordblks;
}

// The answer to a preset as a primary sink.
std::string presetSink() {
    char* response = nullptr;
    EXPECT_EQ(sta_preset_testparameters("mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink",
                                        &response),
              0);
    std::string name = response == nullptr ? "" : response;
    free(response);
    return name;
}

TEST_F(TwoHostsDiscoveryTest, LeavesBehindWhatHasToStay) {
    TestDevice source(peer(), kPatient, "answers");
    EXPECT_EQ(source.preset("source"), "displaysrc");
    Journal::instance().setCapacity(100);  // the journal's growth is not the library's

    constexpr long kRounds = 50;
    // Mostly what the threads that stay keep for themselves of memory that was freed.
    constexpr std::size_t kBytesPerRound = 32'000;
    Usage before{};
    std::size_t bytesBefore = 0;
    for (long round = 0; round <= kRounds; ++round) {
        // Most registrations are given up, and taken back before the daemon has made them. The next
        // one may meet what is still on the network of the one before, and get a number.
        const bool patient = round % 10 == 0;
        setTimeScale(patient ? kPatient : kHasty);
        const std::string name = presetSink();
        EXPECT_TRUE(name.rfind("display", 0) == 0 || !patient) << name;
        setTimeScale(kDiscovering);
        discovermDNSPeer(1);
        ASSERT_EQ(waitforDiscovery(), 0) << "round " << round;
        if (round == 0) {  // with what is made once in a process
            before = Usage::now();
            bytesBefore = allocatedBytes();
            continue;
        }
        // Of each round stay a monitor with its thread and its two sockets, and a trigger service
        // with its thread and its port.
        const Usage expected{before.threads + 2 * round, before.descriptors + 3 * round};
        EXPECT_TRUE(
            test::waitUntil([&] { return Usage::now() == expected; }, std::chrono::seconds(5)))
            << "round " << round << ": " << Usage::now().threads << " threads of "
            << expected.threads << ", " << Usage::now().descriptors << " descriptors of "
            << expected.descriptors;
    }
    EXPECT_LT(allocatedBytes(), bytesBefore + kRounds * kBytesPerRound);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

template <typename Duration>
double milliseconds(Duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

// From the command until the library has the peer's address.
double libraryMilliseconds() {
    resetmDNSParams();
    const uint64_t mark = Journal::instance().mark();
    const auto begin = std::chrono::system_clock::now();
    char* session = nullptr;
    EXPECT_EQ(start_wfd_connection("", nullptr, -100, 1, &session), 0);
    free(session);
    const auto entries = Journal::instance().entries(mark);
    const auto found = std::find_if(entries.begin(), entries.end(), [](const auto& entry) {
        return entry.text.find("Succeeded to resolve service") != std::string::npos &&
               entry.text.find(RealDaemon::ipv4(Host::Peer)) != std::string::npos;
    });
    if (found == entries.end()) {
        ADD_FAILURE() << "no peer";
        return 0;
    }
    return milliseconds(found->time - begin);
}

double plainMilliseconds() {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(findService("_display._tcp"));
    return milliseconds(std::chrono::steady_clock::now() - begin);
}

TEST_F(TwoHostsDiscoveryTest, IsAboutAsFastAsDnsSdItself) {
    TestDevice sink(peer(), kPatient, "answers");
    EXPECT_EQ(sink.preset("p-sink"), "display");
    setTimeScale(kDiscovering);

    const char* const wanted = getenv("TWO_HOSTS_ROUNDS");
    const int rounds = wanted == nullptr ? 9 : atoi(wanted);
    constexpr double kTolerance = 50;
    std::vector<double> library;
    std::vector<double> plain;
    for (int round = 0; round < rounds; ++round) {
        plain.push_back(plainMilliseconds());
        library.push_back(libraryMilliseconds());
    }
    char text[100];
    snprintf(text, sizeof text, "peer found: library %.1f ms, plain DNS-SD %.1f ms",
             median(library), median(plain));
    puts(text);
    RecordProperty("medians", text);
    EXPECT_LE(median(library), median(plain) + kTolerance);
}

}  // namespace
