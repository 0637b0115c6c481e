// Gives the library random commands, requests, results, stops, sessions and faults for a while:
// random_driver [MINUTES [SEED]]
//
// Two threads give commands to a channel of their own, whose results also start and stop requests;
// one thread gives the commands of an agent and switches faults of the device, so that a run can be
// repeated; one thread plays the session client, the sink's user and the other sources. After every
// round all faults have gone, and a registration and sessions must work. At the end the process has
// the threads, descriptors and requests that the commands account for.

#include <array>
#include <random>
#include <shared_mutex>

#include "ChannelTest.h"
#include "DiscoveryTest.h"
#include "WFDTriggerTcpServer.h"
#include "host/text_format.h"

using hostplatform::device;
using hostplatform::Fault;
using hostplatform::format;
using std::string;

namespace {

FakeDnsSd& dnsSd() { return FakeDnsSd::instance(); }

void require(bool condition, const string& what) {
    if (condition) return;
    fprintf(stderr, "not so: %s\n", what.c_str());
    abort();
}

using Engine = std::minstd_rand;
struct Random : Engine {
    using Engine::Engine;
    size_t below(size_t n) { return (*this)() % n; }
    bool oneIn(size_t n) { return below(n) == 0; }
    template <typename List>
    auto& any(List& list) {
        return list[below(std::size(list))];
    }
};

std::atomic<bool> ended{false};
std::atomic<bool> exact{false};  // the agent alone acts: no faults, no random results
std::shared_mutex acting;        // held by the others while they act

std::atomic<int> triggers{0};

// Answers requests: exactly, as the sink that is found, or anyhow.
struct Daemon {
    Daemon() {
        mSink.setCallback([](const char*, int) { ++triggers; });
    }
    void onStart(DNSServiceRef ref, const string& name) {
        const std::lock_guard lock(mMutex);
        const Request& request = mRandom.any(mRequests) = {ref, name};
        for (size_t i = exact ? 1 : mRandom.below(3); i > 0; --i) answer(request);
    }
    void act() {
        const std::lock_guard lock(mMutex);
        const Request& request = mRandom.any(mRequests);
        if (mRandom.oneIn(100)) dnsSd().breakConnection(request.first);
        answer(request);
    }

 private:
    using Request = std::pair<DNSServiceRef, string>;

    void answer(const Request& request) {
        const auto& [ref, name] = request;
        FakeDnsSd::Result result{name, "_display._tcp.", "local.", "peer.local."};
        if (name[0] == '_') result.name = "A peer";
        result.flags = kDNSServiceFlagsAdd;
        result.address = exact || mRandom.oneIn(2) ? "127.0.0.1" : "fe80::1234:5678:9abc:def0";
        result.port = static_cast<uint16_t>(exact || mRandom.oneIn(2) ? mSink.getServerPort() : 1);
        const bool fails = !exact && isdigit(name[0]) == 0 && mRandom.oneIn(10);
        result.error = fails ? kDNSServiceErr_Unknown : kDNSServiceErr_NoError;
        dnsSd().answer(ref, result);
    }

    WFDTriggerTcpServer mSink;
    std::mutex mMutex;  // guards the next two
    Random mRandom{1};
    Request mRequests[40];
};

// One channel and its requests. The name of a request is "ID.NUMBER". Each id is started by one
// thread alone, so its numbers rise.
struct Requests {
    static constexpr size_t kThreads = 2;
    static constexpr size_t kIds = 20;  // of each thread; those after them are started by results
    static constexpr size_t kAll = (kThreads + 1) * kIds;

    explicit Requests(uint64_t seed) : mRandom(seed) {
        mListener.onResult = [this](int id, const char* line) { onResult(id, line); };
    }
    void act(size_t thread, Random& random) {
        const size_t own = thread * kIds + random.below(kIds);
        if (random.oneIn(2)) return start(own, random);
        stop(random.oneIn(3) ? random.below(kAll) : own);
    }
    void stop(size_t id) {
        State& state = mStates.at(id);
        const bool inside = sInResult == id;
        const int number = inside ? mNumber : state.started.load();
        require(command(id, {"stop-discover"}) || !inside, "a stop inside the request's result");
        std::atomic<int>& stopped = inside ? state.stoppedInside : state.stopped;
        for (int before = stopped; before < number;) stopped.compare_exchange_weak(before, number);
    }

 private:
    // Numbers of requests: started, stopped by a thread or a result that is not their own, stopped
    // by their own result.
    struct State {
        std::atomic<int> started{0}, stopped{0}, stoppedInside{0};
    };

    void onResult(int requestId, const char* line) {
        const auto id = static_cast<size_t>(requestId);
        const State& state = mStates.at(id);
        if (line == nullptr) {
            sInResult = SIZE_MAX;
            return require(state.stopped < mNumber, "a stop has returned during the result");
        }
        require(sscanf(line, "%*d \"%*d.%d\"", &mNumber) == 1, line);
        require(mNumber > state.stopped && mNumber > state.stoppedInside,
                "a result of a stopped request");
        sInResult = id;
        if (mRandom.oneIn(3)) stop(mRandom.oneIn(2) ? id : mRandom.below(kAll));
        if (mRandom.oneIn(4)) start(kThreads * kIds + mRandom.below(kIds), mRandom);
    }

    bool command(size_t id, Lines words) {
        words.insert(words.begin() + 1, std::to_string(id));
        const string answer = giveCommand(mChannel, words);
        require(answer[0] == '2' || answer[0] == '5', answer);
        return answer[0] == '2';
    }

    void start(size_t id, Random& random) {
        State& state = mStates.at(id);
        const string name = format("%zu.%d", id, state.started + 1);
        const Lines commands[] = {{"discover", name},
                                  {"register", name, "_x._tcp", "1", ""},
                                  {"resolve", name, "_x._tcp", "local."},
                                  {"getaddrinfo", name}};
        if (command(id, random.any(commands))) ++state.started;
    }

    inline static thread_local size_t sInResult = SIZE_MAX;
    std::array<State, kAll> mStates;
    Random mRandom;   // of the monitor thread, like the next one
    int mNumber = 0;  // of the request whose result is under way
    TestListener mListener;
    MDnsSdChannel mChannel{&mListener};
};

constexpr const char* kFrames[] = {"PAUSE", "PLAY", "SETUP", "TRIGGER-TEARDOWN", "OPTIONS"};
constexpr const char* kReports[][3] = {
    {"SessionState", "STOPPED", "7"},          {"SessionState", "ESTABLISHED", "00000815"},
    {"SessionState", "NEGOTIATING", "any"},    {"StreamControlCompleted", "7", "TEARDOWN"},
    {"StreamControlCompleted", "7", "PLAY"},   {"MMEvent", "MMStreamStarted", "wide"},
    {"AudioEvent", "AudioProxyOpened", "any"}, {"UIBCControlCompleted", "ENABLED", "any"}};

bool fails(Fault fault) { return device().faults().next(fault) != 0; }

// The commands of an agent, on one thread, and what they leave behind.
struct Agent {
    std::atomic<int> sinkPort{0};
    int monitors = 0;  // made so far; none ever goes
    int servers = 0;

    void act(Random& random) {
        const size_t choice = random.below(100);
        const bool full = monitors >= 1000;  // each keeps its thread
        if (choice < 20) {
            const size_t fault = random.below(static_cast<size_t>(Fault::ThreadCreation) + 1);
            device().faults().set(static_cast<Fault>(fault), random.oneIn(3) ? -1 : 0);
        } else if (choice < 35) {
            sta_reset_default(random.oneIn(2) ? "Program,DisplayR2" : "");
        } else if (choice < 45) {
            constexpr const char* kTypes[] = {"", "source", "p-sink"};
            preset(full ? "" : random.any(kTypes));
        } else if (choice < 65) {
            start(random.oneIn(3) && !full ? -100 : 7236, random.oneIn(2) ? 1 : 0);
        } else {
            frame(random.any(kFrames));
        }
    }

    // Without anything else under way: what must work.
    void check() {
        exact = true;
        const std::unique_lock lock(acting);
        device().faults().reset();
        device().session().setPeer(hostplatform::Peer::Answers);
        endUibcWorker();
        sta_reset_default("Program,DisplayR2");
        require(preset("p-sink") == "display", "a sink is registered");
        sendTrigger(sinkPort);
        require(state() == "PLAY", "a session is made by a trigger");
        sta_reset_default("");
        require(preset("source") == "displaysrc", "a source is registered");
        triggers = 0;
        for (const int port : {7236, -100}) {
            for (const int peerType : {1, 0}) {
                const string id = start(port, peerType);
                require(id == format("%.8d", device().session().current()->id) && state() == "PLAY",
                        "a session is started: " + id + state());
                require(frame("TEARDOWN") == 1 && state() == "STOPPED", "a session is torn down");
                sta_reset_default("");
            }
        }
        require(waitUntil([&] { return triggers == 1; }), "the sink found is triggered");
        preset("");
        auto& compositor = device().compositor();
        require(waitUntil([&] {
                    return compositor.layers().size() + compositor.virtualDisplays().size() == 0 &&
                           compositor.openConnections() == 0;
                }),
                "nothing is left on the compositor");
        exact = false;
    }

    static string state() {
        require(device().session().waitReported(), "reports end");
        return device().session().current()->state;
    }

    void makeObject() {
        if (!std::exchange(mObject, true) && !fails(Fault::ThreadCreation)) ++monitors;
    }

    string preset(const string& type) {
        char* response = nullptr;
        const uint64_t mark = device().journal().mark();
        const string command =
            type.empty() ? "mdns_disc,disable" : "mdns_disc,enable,mdns_role,responder,wfddevtype,";
        sta_preset_testparameters((command + type).c_str(), &response);
        mObject = false;
        if (!type.empty()) makeObject();
        if (type == "p-sink" && !fails(Fault::ThreadCreation)) ++servers;
        sinkPort = type == "p-sink" ? registeredPort(mark) : 0;
        return taken(response);
    }

    string start(int port, int peerType) {
        char* response = nullptr;
        const int result = start_wfd_connection("", "192.168.49.2", port, peerType, &response);
        if (port == -100 && !fails(Fault::Allocation)) makeObject();
        require((result == -1) == (response == nullptr), "a start answers with an identifier");
        return taken(response);
    }

    static int frame(const string& type) {
        return dev_send_frame(("framename,RTSP,RtspMsgType," + type).c_str());
    }

    bool mObject = false;  // there is a discovery object
};

void playWorld(const Agent& agent, Daemon& daemon, Random& random) {
    const size_t choice = random.below(100);
    if (choice < 60) {
        daemon.act();
    } else if (choice < 62) {
        device().session().injectInput(hostplatform::touchEvent(static_cast<uint32_t>(choice % 2)));
    } else if (choice < 64) {
        if (const int port = agent.sinkPort; port != 0) sendTrigger(port);
    } else if (choice < 80) {
        const auto& [name, first, second] = random.any(kReports);
        device().session().report(name, {first, second});
    } else {
        device().session().setPeer(static_cast<hostplatform::Peer>(random.below(4)));
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));  // the world is slower
}

}  // namespace

int main(int argc, char** argv) {
    const double minutes = argc > 1 ? atof(argv[1]) : 0.05;
    const uint64_t seed = argc > 2 ? strtoull(argv[2], nullptr, 10) : std::random_device()();
    fprintf(stderr, "random_driver %g %llu\n", minutes, static_cast<unsigned long long>(seed));
    require(device().shellTools().install(), "the shell tools are installed");
    // Nothing orders the library's threads but the library.
    device().log().setDropped(true);
    device().journal().setCapacity(20'000);
    device().properties().simulateMdns(true);
    device().clock().setScale(1000);
    device().clock().onSleep([agent = gettid()](uint32_t milliseconds) {
        if (gettid() != agent || !exact || milliseconds < 1000) return;
        require(waitUntil([] { return dnsSd().idle(); }) && device().session().waitReported(),
                "results and reports end");
    });

    // Static: the library's threads, which stay, use them, and a leak checker finds them.
    static auto& requests = *new Requests(seed);
    static auto& agent = *new Agent;
    static auto& daemon = *new Daemon;
    dnsSd().reportAll = true;
    dnsSd().onStart([&](DNSServiceRef ref, const string& name) { daemon.onStart(ref, name); });
    { const Sink any; }  // the network library keeps what it makes once
    const long threads = threadCount();
    const long descriptors = descriptorCount();
    agent.check();

    std::vector<std::thread> others;
    for (size_t i = 0; i <= Requests::kThreads; ++i) {
        others.emplace_back([&, i] {
            Random random(seed + 10 + i);
            while (!ended) {
                waitUntil([] { return !exact; });
                const std::shared_lock lock(acting);
                i < Requests::kThreads ? requests.act(i, random) : playWorld(agent, daemon, random);
            }
        });
    }
    Random random(seed + 1);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(60 * minutes);
    do {
        for (int i = 0; i < 100; ++i) agent.act(random);
        agent.check();
    } while (std::chrono::steady_clock::now() < end);
    ended = true;
    for (std::thread& thread : others) thread.join();

    for (size_t id = 0; id < Requests::kAll; ++id) requests.stop(id);
    const auto left = [&] {
        return format("%ld threads, %ld descriptors, %zu requests",
                      threadCount() - agent.monitors - agent.servers - threads,
                      descriptorCount() - 2 * agent.monitors - agent.servers - descriptors,
                      dnsSd().liveCount());
    };
    require(waitUntil([&] { return left() == "0 threads, 0 descriptors, 0 requests"; }), left());
    for (const string& violation : dnsSd().takeViolations()) require(false, violation);
    return testing::UnitTest::GetInstance()->Failed() ? 1 : 0;  // an EXPECT of a helper
}
