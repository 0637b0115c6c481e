// The monitor of the DNS-SD command channel: what it polls, and where its thread and those that
// give commands meet.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ChannelTest.h"
#include "SystemFaults.h"
#include "TextFormat.h"

using hostplatform::format;
using std::chrono::milliseconds;

namespace {

using Form = JournalListener::Form;
using Lines = std::vector<std::string>;

// Long enough for a thread that does not wait to show it.
constexpr milliseconds kNotYet{100};

const std::string kStopped = "200 discover stopped";
const std::string kUnknown = "501 Unknown requestId";
const std::string kInUse = "501 RequestId already in use during discover call";

class MonitorTest : public ChannelTest {
 protected:
    size_t results(int requestId) const {
        return count("listener", format("sendBroadcast(604, %d ", requestId));
    }
    bool waitResult(int requestId) const {
        return journal()
            .waitFor("listener", format("sendBroadcast(604, %d ", requestId), marked())
            .has_value();
    }
    // How often the monitor has rescanned with this poll set and these requests.
    size_t rescans(int size, int live) const {
        const Lines lines = trace(monitorThread());
        return static_cast<size_t>(
            std::count(lines.begin(), lines.end(),
                       format("D/MDnsDS: MDnsSdChannel::Monitor poll rescanning - size=%d, live=%d",
                              size, live)));
    }
    // They are there before the start is answered.
    void browseWithTwoResults(int requestId) {
        library().onStart([](DNSServiceRef ref, const std::string&) {
            EXPECT_TRUE(library().answer(ref, {}));
            EXPECT_TRUE(library().answer(ref, {}));
        });
        browse(requestId);
        library().onStart(nullptr);
    }
    // Whether the monitor stays in poll.
    static bool isQuiet() { return journal().waitQuiet(kNotYet, std::chrono::seconds(5)); }
};

TEST_F(MonitorTest, RescansAndProcesses) {
    const DNSServiceRef ref = browse(1);
    EXPECT_EQ(waitRescanned(), 2);
    EXPECT_EQ(
        trace(monitorThread()),
        (Lines{"D/MDnsDS: Monitor poll got data pollCount = 1, 1",
               "D/MDnsDS: controlSocket shows revent= 1", "D/MDnsDS: MDnsSdChannel::Monitor got 1",
               "D/MDnsDS: MDnsSdChannel::Monitor poll rescanning - size=10, live=1",
               "D/MDnsDS: Going to poll with pollCount 2"}));
    mark();
    EXPECT_TRUE(library().answer(ref, {}));
    EXPECT_TRUE(journal().waitFor("log", "Going to poll", marked()));
    const Lines lines = trace(monitorThread());
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ((Lines{lines[0], lines[1]}),
              (Lines{"D/MDnsDS: Monitor poll got data pollCount = 2, 1",
                     "D/MDnsDS: Monitor found [1].revents = 1 - calling ProcessResults"}));
    EXPECT_EQ((Lines{lines.end() - 2, lines.end()}),
              (Lines{"D/MDnsDS: controlSocket shows revent= 0",
                     "D/MDnsDS: Going to poll with pollCount 2"}));
}

TEST_F(MonitorTest, ProcessesOneResultOfEachRequestPerTurn) {
    Hold hold(*this);
    const DNSServiceRef first = browse(1);
    const DNSServiceRef second = browse(2);
    for (const DNSServiceRef ref : {first, second}) {
        EXPECT_TRUE(library().answer(ref, {}));
        EXPECT_TRUE(library().answer(ref, {}));
    }
    mark();
    hold.release();
    // The rescans come in between, and the newest request comes first.
    EXPECT_TRUE(journal().waitFor("listener", "sendBroadcast(604, 1 ", marked()));
    EXPECT_EQ(waitRescanned(), 4);
    EXPECT_TRUE(isQuiet());
    Lines order;
    for (const std::string& line : journal().texts("listener", marked())) {
        if (line.rfind("sendBroadcast", 0) == 0) order.push_back(line.substr(19, 1));
    }
    EXPECT_EQ(order, (Lines{"2", "1", "2", "1"}));
}

TEST_F(MonitorTest, GrowsThePollSet) {
    std::vector<DNSServiceRef> refs;
    for (int live = 1; live <= 16; ++live) {
        SCOPED_TRACE(live);
        mark();
        refs.push_back(browse(live));
        EXPECT_EQ(waitRescanned(), live + 1);
        // What the rescan finds; the one at 10 makes it 15, the one at 15 makes it 20.
        const int size = live <= 10 ? 10 : live <= 15 ? 15 : 20;
        EXPECT_EQ(rescans(size, live), 1U);
        for (int id = 1; id <= live; ++id) {
            EXPECT_TRUE(library().answer(refs.at(static_cast<size_t>(id - 1)), {}));
            EXPECT_TRUE(waitResult(id));
        }
    }
    // It never shrinks.
    for (int id = 1; id <= 16; ++id) stop(id);
    EXPECT_EQ(waitRescanned(), 1);
    mark();
    browse(1);
    EXPECT_EQ(waitRescanned(), 2);
    EXPECT_EQ(rescans(20, 1), 1U);
}

TEST_F(MonitorTest, LeavesOutARequestWithoutASocket) {
    const std::string line = "E/MDnsDS: Error retreving socket FD for live ServiceRef";
    library().onStart([](DNSServiceRef ref, const std::string&) { library().loseSocket(ref); });
    const DNSServiceRef lost = browse(1);
    library().onStart(nullptr);
    EXPECT_EQ(waitRescanned(), 1);
    EXPECT_EQ(count("log", line), 1U);
    const DNSServiceRef good = browse(2);
    EXPECT_EQ(waitRescanned(), 2);
    EXPECT_EQ(rescans(10, 2), 1U);
    EXPECT_TRUE(library().answer(lost, {}));
    EXPECT_TRUE(library().answer(good, {}));
    EXPECT_TRUE(waitResult(2));
    EXPECT_EQ(results(1), 0U);
    EXPECT_EQ(stop(1), kStopped);
    EXPECT_EQ(waitRescanned(), 2);
}

TEST_F(MonitorTest, GivesUpARequestWhoseDaemonIsGone) {
    const DNSServiceRef broken = browse(1);
    const DNSServiceRef good = browse(2);
    EXPECT_EQ(waitRescanned(), 3);
    mark();
    EXPECT_TRUE(library().breakConnection(broken));
    EXPECT_TRUE(journal().waitFor("log", "Going to poll", marked()));
    EXPECT_TRUE(isQuiet()) << "the monitor spins";
    EXPECT_EQ(count("log", "calling ProcessResults"), 1U);

    EXPECT_TRUE(library().answer(good, {}));
    EXPECT_TRUE(waitResult(2));
    // A rescan does not bring it back, its id is in use until it is stopped.
    mark();
    browse(3);
    EXPECT_EQ(waitRescanned(), 3);
    EXPECT_TRUE(isQuiet());
    EXPECT_EQ(count("log", "calling ProcessResults"), 0U);
    EXPECT_EQ(answer({"discover", "1", "_x._tcp"}), kInUse);
    EXPECT_EQ(stop(1), kStopped);
    EXPECT_EQ(waitRescanned(), 3);
    EXPECT_TRUE(library().answer(browse(1), {}));
    EXPECT_TRUE(waitResult(1));
}

TEST_F(MonitorTest, WaitsWhileADeallocationTakesItsTime) {
    const DNSServiceRef ref = browse(1);
    EXPECT_EQ(waitRescanned(), 2);
    Latch deallocating;
    Latch released;
    library().onDeallocate([&](DNSServiceRef, const std::string&) {
        deallocating.open();
        EXPECT_TRUE(released.wait());
    });
    Hold hold(*this);
    EXPECT_TRUE(library().answer(ref, {}));
    std::thread stopper([&] { EXPECT_EQ(stop(1), kStopped); });
    EXPECT_TRUE(deallocating.wait());
    mark();
    hold.release();
    EXPECT_TRUE(journal().waitFor("log", "Going to poll", marked()));
    EXPECT_TRUE(isQuiet()) << "the monitor spins";
    // Other requests go on meanwhile.
    EXPECT_TRUE(library().answer(browse(2), {}));
    EXPECT_TRUE(waitResult(2));
    library().onDeallocate(nullptr);
    released.open();
    stopper.join();
    EXPECT_EQ(results(1), 0U);
}

TEST_F(MonitorTest, IgnoresOtherControlBytes) {
    const std::set<int> before = openDescriptors();
    const uint64_t begin = journal().mark();
    MDnsSdChannel channel(mListener.get());
    EXPECT_TRUE(journal().waitFor("log", "Going to poll with pollCount 1", begin));
    std::vector<int> made;
    for (const int descriptor : openDescriptors()) {
        if (before.count(descriptor) == 0) made.push_back(descriptor);
    }
    ASSERT_EQ(made.size(), 2U);  // the control socket's ends, the one to read first
    mark();
    ASSERT_EQ(write(made[1], "x", 1), 1);
    EXPECT_TRUE(journal().waitFor("log", "Going to poll with pollCount 1", marked()));
    EXPECT_EQ(count("log", "MDnsSdChannel::Monitor got x"), 1U);
    EXPECT_EQ(count("log", "rescanning"), 0U);
}

TEST_F(MonitorTest, KeepsAnIdUntilTheMonitorHasRemovedIt) {
    browse(1);
    EXPECT_EQ(waitRescanned(), 2);
    {
        Hold hold(*this);
        EXPECT_EQ(stop(1), kStopped);
        EXPECT_EQ(answer({"discover", "1", "_x._tcp"}), kInUse);
        EXPECT_EQ(answer({"stop-service"}), "403 Service still in use");
        // The library tells of a second deallocation.
        EXPECT_EQ(stop(1), kStopped);
        EXPECT_EQ(stop(1, "resolve"), "200 resolve stopped");
        EXPECT_EQ(answer({"getaddrinfo", "1", "h"}),
                  "501 RequestId already in use during getAddrInfo call");
    }
    EXPECT_EQ(waitRescanned(), 1);
    EXPECT_EQ(stop(1), kUnknown);
    EXPECT_TRUE(library().answer(browse(1), {}));
    EXPECT_TRUE(waitResult(1));
}

// What the commands do not ask of it.
TEST_F(MonitorTest, KeepsItsTableInOrder) {
    auto& monitor = *new MDnsSdChannel::Monitor;
    const auto context = [this] {
        return new MDnsSdChannel::Context(mListener.get(), mChannel.get(), 1);
    };
    EXPECT_EQ(monitor.lookupServiceRef(1), nullptr);
    monitor.startMonitoring(1);
    monitor.freeServiceRef(1);
    EXPECT_EQ(count("log", "triggering rescan"), 0U);

    EXPECT_NE(monitor.allocateServiceRef(1, context()), nullptr);
    EXPECT_EQ(monitor.allocateServiceRef(1, context()), nullptr);
    monitor.freeServiceRef(1);
    EXPECT_EQ(monitor.lookupServiceRef(1), nullptr);

    // Freed again, a request stays listed for as long as the monitor may look at it.
    auto* const used = context();
    DNSServiceRef* const ref = monitor.allocateServiceRef(1, used);
    ASSERT_NE(ref, nullptr);
    EXPECT_EQ(monitor.lookupServiceRef(1), ref);
    ASSERT_EQ(DNSServiceBrowse(ref, 0, 0, "_x._tcp", nullptr, MDnsSdListenerDiscoverCallback, used),
              kDNSServiceErr_NoError);
    mListener->onResult(1, Form::Parts, [&] {
        bool mine = false;
        EXPECT_EQ(monitor.closeServiceRef(1, &mine), ref);
        EXPECT_TRUE(mine);
        DNSServiceRefDeallocate(*ref);
        monitor.freeServiceRef(1);
        monitor.freeServiceRef(1);
        EXPECT_EQ(monitor.lookupServiceRef(1), ref);
    });
    monitor.startMonitoring(1);
    EXPECT_TRUE(library().answer(*ref, {}));
    EXPECT_TRUE(journal().waitFor("log", "rescanning - size=10, live=0", marked()));
    EXPECT_TRUE(isQuiet());
    EXPECT_EQ(monitor.lookupServiceRef(1), nullptr);
}

TEST_F(MonitorTest, RefusesToStopWhatIsStillBeingStarted) {
    library().onStart([this](DNSServiceRef, const std::string&) {
        EXPECT_EQ(command({"stop-discover", "1"}), 0);
    });
    EXPECT_EQ(command({"discover", "1", "_x._tcp"}), 0);
    library().onStart(nullptr);
    EXPECT_EQ(journal().texts("listener", marked()),
              (Lines{"sendMsg(501, Unknown requestId, 0)",
                     "sendMsg(200, Discover operation started, 0)"}));
    EXPECT_EQ(stop(1), kStopped);
}

TEST_F(MonitorTest, StopsARequestFromItsOwnResult) {
    for (const Form form : {Form::Line, Form::Parts}) {
        mark();
        Lines answers;
        mListener->onResult(1, form, [&] {
            answers.push_back(stop(1));
            EXPECT_EQ(library().liveCount(), 0U);
            // It is not gone before this result ends.
            answers.push_back(stop(1));
            answers.push_back(answer({"discover", "1", "_x._tcp"}));
        });
        browseWithTwoResults(1);
        EXPECT_TRUE(waitResult(1));
        EXPECT_TRUE(journal().waitFor("log", "Going to poll with pollCount 1", marked()));
        EXPECT_EQ(answers, (Lines{kStopped, kStopped, kInUse}));
        EXPECT_EQ(results(1), 1U);
        // The parts of the result still came.
        EXPECT_EQ(count("listener", "onDiscoverResult"), 1U);
        EXPECT_EQ(stop(1), kUnknown);
        mListener->onResult(1, form, {});
    }
}

// Both requests have a result when the monitor polls; whichever comes first stops the other and
// starts a new one, which gets the other's descriptor.
TEST_F(MonitorTest, DropsAnEventOfADescriptorThatIsAnothersNow) {
    std::array<DNSServiceRef, 2> refs{browse(1), browse(2)};
    EXPECT_EQ(waitRescanned(), 3);
    mark();
    int stopped = 0;
    for (const int id : {1, 2}) {
        mListener->onResult(id, Form::Line, [this, &refs, &stopped, id] {
            if (stopped != 0) return;
            stopped = 3 - id;
            const int descriptor = library().socketOf(refs.at(static_cast<size_t>(stopped - 1)));
            EXPECT_EQ(stop(stopped), kStopped);
            const DNSServiceRef fresh = browse(3);
            EXPECT_EQ(library().socketOf(fresh), descriptor);
            EXPECT_TRUE(library().answer(fresh, {}));
        });
    }
    {
        Hold hold(*this);
        for (const DNSServiceRef ref : refs) EXPECT_TRUE(library().answer(ref, {}));
    }
    EXPECT_TRUE(waitResult(3));
    EXPECT_EQ(waitRescanned(), 3);
    EXPECT_NE(stopped, 0);
    EXPECT_EQ(results(stopped), 0U);
    EXPECT_EQ(results(3 - stopped), 1U);
    EXPECT_EQ(results(3), 1U);
    // Only what was readable was processed: the hold's, and these two.
    EXPECT_EQ(count("log", "calling ProcessResults"), 3U);
}

// Stops from two other threads, from inside the result itself, or both: each is answered, and
// returns to another thread only after the result.
TEST_F(MonitorTest, AStopWaitsForTheResultInProgress) {
    const struct {
        const char* name;
        bool inResultBefore;
        bool inResultAfter;
    } cases[] = {{"other threads alone", false, false},
                 {"first in the result", true, false},
                 {"later in the result", false, true}};
    for (const auto& given : cases) {
        SCOPED_TRACE(given.name);
        mark();
        Latch running;
        Latch released;
        std::atomic<bool> ended{false};
        mListener->onResult(1, Form::Parts, [&] {
            if (given.inResultBefore) {
                EXPECT_EQ(stop(1), kStopped);
            }
            running.open();
            EXPECT_TRUE(released.wait());
            if (given.inResultAfter) {
                EXPECT_EQ(stop(1), kStopped);
            }
            ended = true;
        });
        browseWithTwoResults(1);
        EXPECT_TRUE(running.wait());
        std::array<Latch, 2> returned;
        std::vector<std::thread> stoppers;
        stoppers.reserve(returned.size());
        for (Latch& latch : returned) {
            stoppers.emplace_back([this, &ended, &latch] {
                EXPECT_EQ(stop(1), kStopped);
                EXPECT_TRUE(ended) << "the stop returned during the result";
                latch.open();
            });
        }
        EXPECT_FALSE(returned[0].wait(kNotYet));
        EXPECT_FALSE(returned[1].isOpen());
        // A command for another request does not wait.
        browse(2);
        EXPECT_EQ(stop(2), kStopped);
        released.open();
        for (std::thread& stopper : stoppers) stopper.join();
        EXPECT_EQ(results(1), 1U);
        EXPECT_EQ(waitRescanned(), 1);
    }
}

// Far more than the control socket takes, while the monitor cannot read it.
TEST_F(MonitorTest, TakesManyCommandsInsideOneResult) {
    constexpr int kMany = 400;
    if (!allowDescriptors(2 * kMany + 100)) GTEST_SKIP() << "the limit of open files";
    Latch done;
    mListener->onResult(1, Form::Line, [&] {
        for (int id = 1000; id < 1000 + kMany; ++id) browse(id);
        for (int id = 1000; id < 1000 + kMany; ++id) EXPECT_EQ(stop(id), kStopped);
        for (int id = 2000; id < 2000 + kMany; ++id) browse(id);
        done.open();
    });
    const DNSServiceRef ref = browse(1);
    EXPECT_TRUE(library().answer(ref, {}));
    ASSERT_TRUE(done.wait(std::chrono::seconds(60))) << "a command waits for the monitor";
    // Nothing is lost with the bytes: all of the second lot is polled, none of the first is left.
    EXPECT_TRUE(journal().waitFor("log", format("pollCount %d", kMany + 2), marked(),
                                  std::chrono::seconds(60)));
    EXPECT_TRUE(library().answer(library().newest(), {}));
    EXPECT_TRUE(waitResult(2000 + kMany - 1));
    for (int id = 1000; id < 1000 + kMany; ++id) EXPECT_EQ(stop(id), kUnknown);
}

// Until the next command, the monitor does not know of the request.
TEST_F(MonitorTest, IsToldOfARequestWithTheNextOneAtTheLatest) {
    DNSServiceRef first = nullptr;
    {
        const ScopedSystemFault fault(SystemCall::Send, ENOBUFS);
        first = browse(1);
    }
    EXPECT_EQ(count("log", "Error in asking for a rescan - got 105"), 1U);
    EXPECT_TRUE(library().answer(first, {}));
    browse(2);
    EXPECT_TRUE(waitResult(1));
}

// No socket pair, or no thread: the channel is there and refuses.
TEST_F(MonitorTest, RefusesCommandsWithoutAMonitor) {
    const struct {
        SystemCall call;
        int error;
        const char* log;
    } cases[] = {
        {SystemCall::ThreadCreation, EAGAIN,
         "E/MDnsDS: Error creating the monitor's thread - got 11"},
        {SystemCall::SocketPair, EMFILE,
         "E/MDnsDS: Error creating the monitor's control socket - got 24"},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(given.log);
        mark();
        const std::set<int> before = openDescriptors();
        std::unique_ptr<MDnsSdChannel> channel;
        {
            const ScopedSystemFault fault(given.call, given.error);
            channel = std::make_unique<MDnsSdChannel>(mListener.get());
        }
        EXPECT_EQ(count("log", given.log), 1U);
        EXPECT_EQ(openDescriptors(), before);
        for (const Lines& words : std::vector<Lines>{{"discover", "1", "_x._tcp"},
                                                     {"stop-discover", "1"},
                                                     {"start-service"},
                                                     {"stop-service"}}) {
            mark();
            EXPECT_EQ(give(*channel, words), 0);
            EXPECT_EQ(count("listener", "sendMsg"), 1U);
            EXPECT_EQ(count("listener", "sendMsg(501, mdnssd monitor is not running, 0)"), 1U);
        }
        EXPECT_EQ(give(*channel, {}), -1);
    }
    EXPECT_EQ(library().liveCount(), 0U);
}

}  // namespace
