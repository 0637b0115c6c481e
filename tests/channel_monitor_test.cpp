// The monitor of the DNS-SD command channel: where its thread and those that give commands meet.
#include <array>
#include <atomic>
#include <thread>

#include "ChannelTest.h"
#include "MDnsSdChannelMonitor.h"

namespace {

const std::string kInUse = "501 RequestId already in use during discover call";

class MonitorTest : public ChannelTest {
 protected:
    using OnResult = std::function<void(int requestId, const char* line)>;

    // They are there before the start is answered.
    void browseWithResults(int requestId, int count) {
        library().onStart([count](DNSServiceRef ref, const std::string&) {
            for (int i = 0; i < count; ++i) EXPECT_TRUE(library().answer(ref, {}));
        });
        browse(requestId);
        library().onStart(nullptr);
    }
    // Keep the monitor thread inside a result from now on; release it, and wait until it has looked
    // at all requests. The results of other requests go to `others`.
    void hold(const OnResult& others = [](int, const char*) {}) {
        mListener.onResult = [this, others](int requestId, const char* line) {
            if (requestId != kHeld) return others(requestId, line);
            mHeld = true;
            EXPECT_TRUE(waitUntil(mReleased));
        };
        browseWithResults(kHeld, 1);
        EXPECT_TRUE(waitUntil(mHeld));
    }
    void letGo(std::thread starter = {}) {
        mReleased = true;
        EXPECT_EQ(stop(kHeld), kStopped);  // which waits for the result
        if (starter.joinable()) starter.join();
        settle();
    }

    std::atomic<bool> mReleased{false};

 private:
    static constexpr int kHeld = 800'000;
    std::atomic<bool> mHeld{false};
};

TEST_F(MonitorTest, EachTurnReportsOneResultOfEachRequestNewestFirst) {
    hold();
    const std::array refs{browse(1), browse(2)};
    for (const DNSServiceRef ref : {refs[0], refs[0], refs[1], refs[1]}) {
        EXPECT_TRUE(library().answer(ref, {}));
    }
    letGo();
    EXPECT_TRUE(waitUntil([this] { return results(1) == 2; }));
    std::string order;
    for (const std::string& line : calls("result")) {
        if (line.rfind("604 ", 0) == 0 && line[4] < '3') order += line[4];
    }
    EXPECT_EQ(order, "2121");
    EXPECT_EQ(stop(1) + stop(2), kStopped + kStopped);
}

TEST_F(MonitorTest, ARequestWhoseDaemonIsGoneIsNotPolledAgain) {
    DNSServiceRef refs[2];
    for (const int id : {1, 2}) {  // after the result of each no rescan is due
        refs[id - 1] = browse(id);
        EXPECT_TRUE(library().answer(refs[id - 1], {}));
        EXPECT_TRUE(waitResult(id));
    }
    mark();
    EXPECT_TRUE(library().breakConnection(refs[0]));
    EXPECT_TRUE(waitUntil([&] { return !calls("dns-sd").empty(); }));
    EXPECT_TRUE(library().answer(refs[1], {}));
    EXPECT_TRUE(waitResult(2));
    settle();
    EXPECT_EQ(journal().count("dns-sd", "DNSServiceProcessResult fails", marked()), 1U);
    EXPECT_EQ(start(1), kInUse);  // until it is stopped
    EXPECT_EQ(stop(1), kStopped);
    EXPECT_TRUE(library().answer(browse(1), {}));
    EXPECT_TRUE(waitResult(1));
    EXPECT_EQ(stop(1) + stop(2), kStopped + kStopped);
}

TEST_F(MonitorTest, ADeallocationThatTakesLongHoldsUpNothing) {
    std::atomic<bool> deallocating{false}, released{false};
    const DNSServiceRef ref = browse(1);
    library().onDeallocate([&](DNSServiceRef going, const std::string&) {
        if (going != ref) return;
        deallocating = true;
        EXPECT_TRUE(waitUntil(released));
    });
    hold();
    EXPECT_TRUE(library().answer(ref, {}));
    std::thread stopper([this] { EXPECT_EQ(stop(1), kStopped); });
    EXPECT_TRUE(waitUntil(deallocating));
    letGo();
    const uint64_t before = journal().mark();
    for (int i = 0; i < 5; ++i) settle();
    EXPECT_LT(journal().mark() - before, 300U) << "the monitor spins";
    std::atomic<bool> begun{false};
    std::thread starter([&] {
        begun = true;
        EXPECT_EQ(start(1), kStarted);  // it waits
    });
    EXPECT_TRUE(waitUntil(begun));
    yieldToOthers();
    released = true;
    stopper.join();
    starter.join();
    EXPECT_EQ(results(1), 0U);
    EXPECT_EQ(stop(1), kStopped);
}

TEST_F(MonitorTest, AnIdIsInUseUntilTheMonitorHasRemovedIt) {
    library().onStart([this](DNSServiceRef, const std::string&) {
        EXPECT_EQ(stop(1), kUnknown) << "while it is being started";
    });
    browse(1);
    hold();
    EXPECT_EQ(stop(1), kStopped);
    EXPECT_EQ(stop(1), kStopped);  // without a second deallocation
    EXPECT_EQ(command({"stop-service"}), "403 Service still in use");
    EXPECT_EQ(start(1), kInUse);  // after a second
    std::atomic<bool> begun{false};
    std::thread starter([&] {
        begun = true;
        EXPECT_EQ(start(1), kStarted);
    });
    EXPECT_TRUE(waitUntil(begun));
    letGo(std::move(starter));
    EXPECT_EQ(stop(1), kStopped);
    settle();
    EXPECT_EQ(stop(1), kUnknown);
}

TEST_F(MonitorTest, AResultCanStopItsRequest) {
    for (const bool inLine : {true, false}) {
        mark();
        Lines answers;
        std::atomic<bool> done{false};
        mListener.onResult = [&](int requestId, const char* line) {
            if (requestId != 1 || (line != nullptr) != inLine) return;
            // It is not gone before this result ends, and a start does not wait for that here.
            answers = {stop(1), std::to_string(library().liveCount()), stop(1), start(1)};
            done = true;
        };
        browseWithResults(1, 2);
        EXPECT_TRUE(waitUntil(done));
        settle();
        EXPECT_EQ(answers, (Lines{kStopped, "0", kStopped, kInUse}));
        EXPECT_EQ(calls("result")[1], "0   ");  // the parts still came
        EXPECT_EQ(results(1), 1U);
        EXPECT_EQ(stop(1), kUnknown);
    }
}

// Both requests have a result when the monitor polls; whichever comes first stops the other and
// starts a new one, which gets the other's descriptor.
TEST_F(MonitorTest, AnEventOfADescriptorThatIsAnothersNowIsDropped) {
    const std::array refs{browse(1), browse(2)};
    std::atomic<int> stopped{0};
    hold([&](int requestId, const char* line) {
        if (line == nullptr || stopped != 0 || requestId > 2) return;
        stopped = 3 - requestId;
        const int descriptor = DNSServiceRefSockFD(refs.at(static_cast<size_t>(stopped - 1)));
        EXPECT_EQ(stop(stopped), kStopped);
        const DNSServiceRef fresh = browse(3);
        EXPECT_EQ(DNSServiceRefSockFD(fresh), descriptor);
        EXPECT_TRUE(library().answer(fresh, {}));
    });
    mark();
    for (const DNSServiceRef ref : refs) EXPECT_TRUE(library().answer(ref, {}));
    mReleased = true;
    EXPECT_TRUE(waitResult(3));  // until then no other thread may take or free descriptors
    letGo();
    EXPECT_EQ(results(stopped), 0U);
    EXPECT_EQ(results(3 - stopped), 1U);
    EXPECT_EQ(results(3), 1U);
    EXPECT_EQ(stop(3) + stop(3 - stopped), kStopped + kStopped);
}

// Stops from two other threads and from inside the result itself: each is answered, and returns to
// another thread only after the result.
TEST_F(MonitorTest, AStopWaitsForTheResultInProgress) {
    for (const std::string inResult : {"", "before the others", "after them"}) {
        SCOPED_TRACE(inResult);
        mark();
        std::atomic<bool> running{false}, released{false}, ended{false};
        std::atomic<int> stopping{0};
        std::string answers;
        mListener.onResult = [&](int requestId, const char* line) {
            if (requestId != 1 || line != nullptr) return;
            if (inResult == "before the others") answers = stop(1);
            running = true;
            EXPECT_TRUE(waitUntil(released));
            if (inResult == "after them") answers = stop(1);
            ended = true;
        };
        browseWithResults(1, 2);
        EXPECT_TRUE(waitUntil(running));
        std::array<std::thread, 2> stoppers;
        for (std::thread& stopper : stoppers) {
            stopper = std::thread([&] {
                ++stopping;
                EXPECT_EQ(stop(1), kStopped);
                EXPECT_TRUE(ended) << "the stop returned during the result";
            });
        }
        EXPECT_TRUE(waitUntil([&] { return stopping == 2; }));
        yieldToOthers();
        browse(2);  // a command for another request does not wait
        EXPECT_EQ(stop(2), kStopped);
        released = true;
        for (std::thread& stopper : stoppers) stopper.join();
        settle();
        EXPECT_EQ(answers, inResult.empty() ? "" : kStopped);
        EXPECT_EQ(results(1), 1U);
    }
}

// Far more than the control socket takes, while the monitor cannot read it.
TEST_F(MonitorTest, OneResultCanGiveAnyNumberOfCommands) {
    const auto each = [](int first, const std::function<void(int)>& act) {
        for (int id = first; id < first + 400; ++id) act(id);
    };
    std::atomic<bool> done{false};
    mListener.onResult = [&](int requestId, const char* line) {
        if (requestId != 1 || line == nullptr) return;
        each(1000, [this](int id) { browse(id); });
        each(1000, [this](int id) { EXPECT_EQ(stop(id), kStopped); });
        each(2000, [this](int id) { browse(id); });
        done = true;
    };
    browseWithResults(1, 1);
    ASSERT_TRUE(waitUntil(done)) << "a command waits for the monitor";
    EXPECT_TRUE(library().answer(library().newest(), {}));
    EXPECT_TRUE(waitResult(2399));
    settle();
    each(1000, [this](int id) { EXPECT_EQ(stop(id), kUnknown); });
    each(2000, [this](int id) { EXPECT_EQ(stop(id), kStopped); });
    EXPECT_EQ(stop(1), kStopped);
}

// What the commands do not ask of the table.
TEST_F(MonitorTest, TheTableHoldsEachIdOnce) {
    auto& monitor = *new MDnsSdChannel::Monitor;
    const auto allocate = [&](int id) {
        return monitor.allocateServiceRef(id,
                                          new MDnsSdChannel::Context(&mListener, &mChannel, id));
    };
    monitor.startMonitoring(1);
    monitor.freeServiceRef(1);
    DNSServiceRef* const ref = allocate(1);
    EXPECT_NE(allocate(2), nullptr);
    EXPECT_EQ(allocate(1), nullptr);
    EXPECT_EQ(monitor.lookupServiceRef(1), ref);
    monitor.freeServiceRef(1);
    EXPECT_EQ(monitor.lookupServiceRef(1), nullptr);
    monitor.freeServiceRef(2);
}

}  // namespace
