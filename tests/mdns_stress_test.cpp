// The DNS-SD command channel under load: several threads start, answer and stop requests while
// results arrive, and results stop requests, their own and others', and start new ones.
//
// MDNS_STRESS_SECONDS: how long, at first 3. MDNS_STRESS_SEED: what the choices begin from, at
// first another one every time.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ChannelTest.h"
#include "android/log.h"

namespace {

constexpr int kThreads = 4;
constexpr int kIdsPerThread = 20;  // those of the last, virtual, thread are for results to start
constexpr int kIds = (kThreads + 1) * kIdsPerThread;
constexpr int kProbe = kIds;  // ids from here on are for looking whether everything is in order
constexpr int kProbes = 3;
constexpr uint32_t kMostRequests = 1U << 22;

struct Operation {
    const char* word;
    int found;
    int failed;
};
constexpr std::array<Operation, 5> kOperations{{{"discover", 603, 602},
                                                {"register", 606, 605},
                                                {"resolve", 608, 607},
                                                {"getaddrinfo", 612, 611},
                                                {"sethostname", 610, 609}}};
constexpr uint32_t kHostname = 4;

std::atomic<int> pollErrors{0};

long environment(const char* name, long otherwise) {
    const char* const text = getenv(name);
    return text == nullptr ? otherwise : atol(text);
}

using Random = std::minstd_rand;

// One of `n`, evenly.
uint32_t pick(Random& random, uint32_t n) {
    return std::uniform_int_distribution<uint32_t>(0, n - 1)(random);
}

}  // namespace

// The device's own log would put every line of every thread in order, and so keep from
// ThreadSanitizer what the channel's own locks must do. Lines are still made.
int __android_log_print(int, const char*, const char* fmt, ...) {
    char line[512];
    va_list arguments;
    va_start(arguments, fmt);
    const int length = vsnprintf(line, sizeof line, fmt, arguments);
    va_end(arguments);
    if (strncmp(line, "Error in poll", 13) == 0) ++pollErrors;
    return length;
}

namespace {

// Requests are numbered from 1. A request's number is in its name, so that each result tells which
// one it belongs to; an error's code is the negative number.
class Stress : public MDnsResultListener {
 public:
    explicit Stress(uint32_t seed) : mSeed(seed) { mResultRandom.seed(seed); }

    void run(std::chrono::seconds duration);
    // Stops everything and looks whether all is in order.
    void finish();
    uint64_t started() const { return mStarted; }

    int sendMsg(int code, const char* message, bool flag) override;
    int sendBroadcast(int code, const char* message, bool flag) override;
    void onDiscoverResult(int, const char*, const char*, const char*) override { endResult(); }
    void onRegisterResult(int, const char*, const char*, const char*) override { endResult(); }
    void onResolveResult(int, const char*, const char*, int, int, const unsigned char*) override {
        endResult();
    }
    void onGetAddrResult(int, const char*, const char*) override { endResult(); }

 private:
    // By number. `stopped` says that no result may begin any more; after a stop from another
    // request's result or another thread, none may be running either.
    enum Stopped : uint8_t { No = 0, InItsResult = 1, Outside = 2 };
    struct Request {
        std::atomic<DNSServiceRef> ref{nullptr};
        std::atomic<int> id{0};
        std::atomic<uint8_t> stopped{No};
    };
    struct Reply {
        int count;
        int code;
        std::string text;
    };

    static FakeDnsSd& library() { return FakeDnsSd::instance(); }

    void onStart(DNSServiceRef ref, uint32_t number);
    void commands(int thread);
    void start(int id, Random& random);
    void stop(int id, uint32_t number, Random& random);
    void answer(uint32_t number, Random& random);
    void act(uint32_t number, Random& random);
    void endResult();
    void probe();
    Reply give(const std::vector<std::string>& words);
    bool ended() const { return mEnded || mNumbers >= kMostRequests - 1000; }

    const uint32_t mSeed;
    MDnsSdChannel mChannel{this};
    std::unique_ptr<Request[]> mRequests = std::make_unique<Request[]>(kMostRequests);
    std::atomic<uint32_t> mNumbers{0};
    // The started request of each id. Set only by the thread whose id it is, after the start; 0
    // from before the next start on.
    std::array<std::atomic<uint32_t>, kIds + kProbes> mCurrent{};
    std::atomic<uint32_t> mReporting{0};  // whose result is running
    std::atomic<bool> mEnded{false};
    std::atomic<uint64_t> mStarted{0}, mRefused{0}, mStops{0}, mResults{0};
    Random mResultRandom;  // the monitor thread's
    int mProbes = 0;
    std::set<int> mDescriptors;
    uint64_t mReportedBefore = 0;
    std::atomic<Latch*> mProbed{nullptr};

    inline static thread_local Reply sReply;
    inline static thread_local bool sOnMonitorThread = false;
};

Stress::Reply Stress::give(const std::vector<std::string>& words) {
    sReply = {};
    EXPECT_EQ(::give(mChannel, words), 0);
    EXPECT_EQ(sReply.count, 1) << words[0];
    return sReply;
}

int Stress::sendMsg(int code, const char* message, bool /*flag*/) {
    sReply = {sReply.count + 1, code, message};
    return 0;
}

void Stress::start(int id, Random& random) {
    const uint32_t number = ++mNumbers;
    const std::string text = std::to_string(number);
    const std::string idText = std::to_string(id);
    const Operation& operation = kOperations.at(number % kOperations.size());
    std::vector<std::string> words{operation.word, idText, text};
    if (operation.word == std::string("register")) words.insert(words.end(), {"_x._tcp", "1", ""});
    if (operation.word == std::string("resolve")) words.insert(words.end(), {"_x._tcp", "local."});

    mRequests[number].id = id;
    auto& current = mCurrent.at(static_cast<size_t>(id));
    const uint32_t before = current.exchange(0);
    const bool fails = id < kProbe && pick(random, 50) == 0;
    FakeDnsSd::failNextCall(fails ? kDNSServiceErr_NoMemory : kDNSServiceErr_NoError);
    const Reply reply = give(words);
    FakeDnsSd::failNextCall(kDNSServiceErr_NoError);
    if (reply.code == 200) {
        EXPECT_FALSE(fails);
        current = number;
        ++mStarted;
        return;
    }
    EXPECT_EQ(reply.code, 501);
    const bool inUse = reply.text.rfind("RequestId already in use", 0) == 0;
    EXPECT_TRUE(inUse || fails) << reply.text;
    if (inUse) current = before;
    ++mRefused;
}

// `number`: the request that the id is known to be of, 0 for none.
void Stress::stop(int id, uint32_t number, Random& random) {
    const bool inItsResult = sOnMonitorThread && mReporting == number;
    const char* const word = kOperations.at(pick(random, kOperations.size())).word;
    const Reply reply = give({std::string("stop-") + word, std::to_string(id)});
    EXPECT_TRUE(reply.code == 200 || reply.text == "Unknown requestId") << reply.text;
    ++mStops;
    if (number == 0) return;
    if (!inItsResult) {
        EXPECT_NE(mReporting, number) << "a result runs after the stop";
    }
    mRequests[number].stopped |= static_cast<uint8_t>(inItsResult ? InItsResult : Outside);
}

void Stress::answer(uint32_t number, Random& random) {
    if (number == 0) return;
    FakeDnsSd::Result result;
    if (pick(random, 8) == 0) result.error = -static_cast<int32_t>(number);
    result.flags = kDNSServiceFlagsAdd;
    result.name = std::to_string(number);
    result.type = "_x._tcp.";
    result.domain = "local.";
    result.target = "h.local.";
    result.address = number % 2 == 0 ? "192.168.49.1" : "fe80::1";
    result.txt.assign(number % 7, 'x');
    library().answer(mRequests[number].ref, result);
}

void Stress::commands(int thread) {
    Random random(mSeed + static_cast<uint32_t>(thread) + 1);
    const auto own = [&] {
        return thread * kIdsPerThread + static_cast<int>(pick(random, kIdsPerThread));
    };
    const auto any = [&] { return static_cast<int>(pick(random, kIds)); };
    const auto current = [&](int id) { return mCurrent.at(static_cast<size_t>(id)).load(); };
    for (uint32_t turn = 1; !ended(); ++turn) {
        if (turn % 1024 == 0 && testing::Test::HasFailure()) mEnded = true;
        const uint32_t choice = pick(random, 100);
        if (choice < 35) {
            start(own(), random);
        } else if (choice < 55) {
            const int id = own();
            stop(id, current(id), random);
        } else if (choice < 65) {
            const int id = any();
            stop(id, current(id), random);
        } else {
            answer(current(any()), random);
        }
    }
}

int Stress::sendBroadcast(int code, const char* message, bool /*flag*/) {
    int id = -1;
    uint32_t number = 0;
    const bool named = sscanf(message, "%d \"%u\"", &id, &number) == 2;
    const bool failed = !named && sscanf(message, "%d -%u", &id, &number) == 2;
    if ((!named && !failed) || number >= kMostRequests) {
        ADD_FAILURE() << message;
        return 0;
    }
    const Operation& operation = kOperations.at(number % kOperations.size());
    EXPECT_EQ(code, named ? operation.found : operation.failed) << message;
    Request& request = mRequests[number];
    EXPECT_EQ(id, request.id) << message;
    EXPECT_EQ(mReporting.exchange(number), 0U);
    EXPECT_EQ(request.stopped, No) << "a result begins after the stop of request " << message;
    ++mResults;
    sOnMonitorThread = true;
    act(number, mResultRandom);
    if (number % kOperations.size() == kHostname) endResult();
    return 0;
}

void Stress::act(uint32_t number, Random& random) {
    const int id = mRequests[number].id;
    if (id >= kProbe) {
        if (Latch* const probed = mProbed.exchange(nullptr)) probed->open();
        return;
    }
    if (mEnded) return;
    const auto other = static_cast<int>(pick(random, kIds));
    switch (pick(random, 12)) {
        case 0:
        case 1:
            stop(id, number, random);
            break;
        case 2:
            stop(id, number, random);
            stop(id, number, random);
            break;
        case 3:
        case 4: {
            const uint32_t current = mCurrent.at(static_cast<size_t>(other));
            stop(other, other == id ? number : current, random);
            break;
        }
        case 5:
        case 6:
            start(kThreads * kIdsPerThread + static_cast<int>(pick(random, kIdsPerThread)), random);
            break;
        case 7:
            answer(number, random);
            break;
        case 8:
            std::this_thread::yield();
            break;
        default:
            break;
    }
}

void Stress::endResult() {
    const uint32_t number = mReporting;
    EXPECT_EQ(mRequests[number].stopped & Outside, 0) << "a stop returned during the result";
    mReporting = 0;
}

// Some requests have results before their start returns, some no socket, some lose their daemon.
void Stress::onStart(DNSServiceRef ref, uint32_t number) {
    Request& request = mRequests[number];
    request.ref = ref;
    if (request.id >= kProbe) return;
    Random random(mSeed ^ number * 2654435761U);
    const uint32_t choice = pick(random, 200);
    if (choice == 0) library().loseSocket(ref);
    if (choice == 1) library().breakConnection(ref);
    for (uint32_t results = pick(random, 3); results > 0; --results) answer(number, random);
}

// When its result has come, every rescan asked for before has been made, and no result given
// before is running any more.
void Stress::probe() {
    Random random(mSeed);
    Latch probed;
    mProbed = &probed;
    // The id of the one before may still be in use.
    const int id = kProbe + mProbes++;
    start(id, random);
    const uint32_t number = mCurrent.at(static_cast<size_t>(id));
    ASSERT_NE(number, 0U);
    answer(number, random);
    EXPECT_TRUE(probed.wait(std::chrono::seconds(60))) << "no result for a fresh request";
    stop(id, number, random);
}

void Stress::run(std::chrono::seconds duration) {
    library().setJournalled(false);
    library().onStart([this](DNSServiceRef ref, const std::string& name) {
        onStart(ref, static_cast<uint32_t>(std::stoul(name)));
    });
    // Deallocating takes a while, now and then.
    library().onDeallocate([](DNSServiceRef ref, const std::string&) {
        if (reinterpret_cast<uintptr_t>(ref) / 16 % 4 == 0) std::this_thread::yield();
    });
    mReportedBefore = library().reportedCount();
    probe();
    mDescriptors = openDescriptors();

    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] { commands(thread); });
    }
    const auto end = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < end && !ended()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));  // for the duration, in parts
    }
    mEnded = true;
    for (std::thread& thread : threads) thread.join();
}

void Stress::finish() {
    probe();  // no result starts anything any more
    Random random(mSeed);
    for (int id = 0; id < kIds; ++id) stop(id, mCurrent.at(static_cast<size_t>(id)), random);
    EXPECT_EQ(library().liveCount(), 0U) << "references leaked";
    probe();
    library().onStart(nullptr);
    library().onDeallocate(nullptr);

    EXPECT_EQ(openDescriptors(), mDescriptors);
    EXPECT_EQ(library().takeViolations(), std::vector<std::string>{});
    EXPECT_EQ(library().reportedCount() - mReportedBefore, mResults);
    EXPECT_EQ(pollErrors, 0);
    // Every id is free.
    for (int id = 0; id < kIds; ++id) {
        EXPECT_EQ(give({"discover", std::to_string(id), "_x._tcp"}).code, 200) << id;
        EXPECT_EQ(give({"stop-discover", std::to_string(id)}).code, 200) << id;
    }
    std::cout << mStarted << " requests started, " << mRefused << " refused, " << mStops
              << " stops, " << mResults << " results\n";
}

TEST(MDnsStress, StartsAnswersAndStops) {
    const std::chrono::seconds duration(environment("MDNS_STRESS_SECONDS", 3));
    const auto seed = static_cast<uint32_t>(
        environment("MDNS_STRESS_SEED", static_cast<long>(std::random_device()())));
    std::cout << "MDNS_STRESS_SEED=" << seed << " for " << duration.count() << " s\n";
    if (!allowDescriptors(2 * (kIds + kProbes) + 100)) GTEST_SKIP() << "the limit of open files";
    Stress stress(seed);
    stress.run(duration);
    stress.finish();
    if (duration >= std::chrono::seconds(60)) {
        EXPECT_GE(stress.started(), 100'000U);
    }
}

}  // namespace
