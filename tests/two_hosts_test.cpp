// Wi-Fi Display R2 between two devices on a network: they find each other by DNS-SD, the trigger
// goes over TCP, and their sessions are linked. Each case looks at both devices.
#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/defs.h>
#include <avahi-common/error.h>
#include <avahi-common/simple-watch.h>

#include <array>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "PlainDnsSd.h"
#include "RealDaemon.h"
#include "TestDevice.h"

namespace {

using asio::ip::tcp;

// A registration takes the daemon a second; the library waits for 10 seconds of device time.
constexpr double kNetworkScale = 3;
// For a device that only waits in vain.
constexpr double kWaitingScale = 40;

constexpr const char* kNewR2Test = "sta_reset_default,interface,wlan0,prog,DisplayR2";
constexpr const char* kFindSink = "start_wfd_connection,RtspPort,-100,PeerDevType,p-sink";
constexpr const char* kFindSource = "start_wfd_connection,RtspPort,-100,PeerDevType,source";
constexpr const char* kNoSession = "ERROR,errorCode,-1";

const std::string kHere = RealDaemon::ipv4(Host::Here);
const std::string kPeer = RealDaemon::ipv4(Host::Peer);

std::string frame(const std::string& type) {
    return "dev_send_frame,framename,RTSP,RtspMsgType," + type;
}

// What the library asks the session client for.
std::string creation(const std::string& role, const std::string& local, const std::string& peer,
                     int port) {
    return "createWfdSession as " + role + " (R2), local \"" + local + "\", peer \"" + peer +
           "\" port " + std::to_string(port) + " (R2)";
}

int triggerPort(const TestDevice& sink) {
    return std::atoi(sink.after("log", "register sink, tcp port ").c_str());
}

std::error_code connectTo(tcp::socket& socket, int port) {
    std::error_code error;
    const tcp::endpoint sink(asio::ip::make_address(kPeer), static_cast<unsigned short>(port));
    socket.connect(sink, error);
    return error;
}

class TwoHostsTest : public RealDaemonTest {
 protected:
    void startPeer() { ASSERT_TRUE(mPeer.start()); }
    std::unique_ptr<TestDevice> device(Host host, double timeScale) {
        return std::make_unique<TestDevice>(host == Host::Here ? daemon() : mPeer, timeScale);
    }

    static void expectNoSession(TestDevice& device) {
        EXPECT_EQ(device.command(frame("PAUSE")), kNoSession);
    }

 private:
    RealDaemon mPeer{Host::Peer, "other"};
};

TEST_F(TwoHostsTest, NobodyIsThere) {
    ASSERT_NO_FATAL_FAILURE(startPeer());
    const auto source = device(Host::Here, kWaitingScale);
    const auto sink = device(Host::Peer, kWaitingScale);
    for (TestDevice* const each : {source.get(), sink.get()}) {
        EXPECT_EQ(each->command(kNewR2Test), "COMPLETE");
    }
    source->send(kFindSink);
    sink->send(kFindSource);
    EXPECT_EQ(source->answer(), kNoSession);
    EXPECT_EQ(sink->answer(), kNoSession);
    EXPECT_TRUE(source->shows("session", creation("source", kHere, "", 7236) + " -> 0"));
    EXPECT_TRUE(sink->shows("session", creation("sink", kPeer, "", -100) + " -> -1"));
    for (TestDevice* const each : {source.get(), sink.get()}) {
        EXPECT_EQ(each->count("log", "discover a service"), 0U);
        EXPECT_EQ(each->count("report", "SessionState"), 0U);
        expectNoSession(*each);
    }
}

TEST_F(TwoHostsTest, TwoSinksOfOneName) {
    ASSERT_NO_FATAL_FAILURE(startPeer());
    const auto first = device(Host::Here, kNetworkScale);
    const auto second = device(Host::Peer, kNetworkScale / 2);  // it has to try twice
    const std::string firstName = first->preset("p-sink");
    EXPECT_EQ(firstName, "display");
    const std::string secondName = second->preset("p-sink");
    EXPECT_NE(secondName, "");
    EXPECT_NE(secondName, firstName);

    struct {
        const std::string& name;
        const TestDevice& sink;
        const std::string& address;
    } const cases[] = {{firstName, *first, kHere}, {secondName, *second, kPeer}};
    for (const auto& c : cases) {
        const auto found = resolveService(c.name, "_display._tcp");
        ASSERT_TRUE(found) << c.name;
        EXPECT_EQ(found->ipv4, c.address) << c.name;
        EXPECT_EQ(found->port, triggerPort(c.sink)) << c.name;
    }
}

// The peer's host is without an IPv4 address while it lives.
class Ipv6Only {
 public:
    Ipv6Only() { change("delete"); }
    ~Ipv6Only() { change("add"); }
    Ipv6Only(const Ipv6Only&) = delete;
    Ipv6Only& operator=(const Ipv6Only&) = delete;

 private:
    static void change(const std::string& how) {
        const std::string command =
            "ip netns exec peer ip address " + how + ' ' + kPeer + "/24 dev wlan0";
        EXPECT_EQ(system(command.c_str()), 0) << command;
    }
};

TEST_F(TwoHostsTest, PeerWithIpv6Only) {
    const Ipv6Only ipv6Only;
    ASSERT_NO_FATAL_FAILURE(startPeer());
    const auto sink = device(Host::Peer, kNetworkScale);
    EXPECT_EQ(sink->preset("p-sink"), "display");
    const auto source = device(Host::Here, kWaitingScale / 2);
    EXPECT_EQ(source->command(kNewR2Test), "COMPLETE");
    EXPECT_EQ(source->command(kFindSink), kNoSession);
    EXPECT_TRUE(
        source->shows("log", std::string("resolve service: display _display._tcp. local. ") +
                                 RealDaemon::ipv6(Host::Peer)));
    EXPECT_TRUE(source->shows("log", "ignore ipv6 address"));
    EXPECT_TRUE(source->shows("session", creation("source", kHere, "", 7236) + " -> 0"));
    EXPECT_EQ(source->count("log", "trigger Sink Connect"), 0U);
    EXPECT_EQ(sink->count("log", "accept returns"), 0U);
    EXPECT_EQ(sink->count("session", "createWfdSession"), 0U);
}

// A name of a service on this host, without the service: what is left in caches of a device that
// has gone away. It is there while the object lives.
class NameWithoutService {
 public:
    NameWithoutService() {
        AvahiClient* const client = avahi_client_new(
            avahi_simple_poll_get(mPoll.get()), static_cast<AvahiClientFlags>(0),
            [](AvahiClient*, AvahiClientState, void*) {}, nullptr, nullptr);
        mClient.reset(client);
        if (client == nullptr) return;
        constexpr std::string_view kTarget("\5ghost\10_display\4_tcp\5local\0", 27);
        AvahiEntryGroup* const group = avahi_entry_group_new(
            client,
            [](AvahiEntryGroup*, AvahiEntryGroupState state, void* published) {
                if (state == AVAHI_ENTRY_GROUP_ESTABLISHED) *static_cast<bool*>(published) = true;
            },
            &mPublished);
        if (group == nullptr ||
            avahi_entry_group_add_record(group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                         static_cast<AvahiPublishFlags>(0), "_display._tcp.local",
                                         AVAHI_DNS_CLASS_IN, AVAHI_DNS_TYPE_PTR, 120,
                                         kTarget.data(), kTarget.size()) != AVAHI_OK ||
            avahi_entry_group_commit(group) != AVAHI_OK) {
            return;
        }
        while (!mPublished && avahi_simple_poll_iterate(mPoll.get(), 10'000) == 0) {
        }
    }

    bool published() const { return mPublished; }

 private:
    struct Free {
        void operator()(AvahiSimplePoll* poll) const { avahi_simple_poll_free(poll); }
        void operator()(AvahiClient* client) const { avahi_client_free(client); }
    };
    std::unique_ptr<AvahiSimplePoll, Free> mPoll{avahi_simple_poll_new()};
    std::unique_ptr<AvahiClient, Free> mClient;
    bool mPublished = false;
};

TEST_F(TwoHostsTest, PeerThatIsGoneBeforeItIsResolved) {
    ASSERT_NO_FATAL_FAILURE(startPeer());
    const NameWithoutService ghost;
    ASSERT_TRUE(ghost.published());
    // The daemon gives a resolution up after 5 seconds.
    const auto source = device(Host::Peer, 6);
    EXPECT_EQ(source->command(kNewR2Test), "COMPLETE");
    source->send(kFindSink);
    EXPECT_TRUE(source->shows("log", "discover a service : ghost _display._tcp"));
    // Who comes now comes too late: the first one was taken.
    const auto sink = device(Host::Here, kNetworkScale);
    EXPECT_EQ(sink->preset("p-sink"), "display");
    EXPECT_TRUE(source->shows("log", "already discovered a service, don't resolve this one"));
    EXPECT_TRUE(source->shows("log", "Failed to resolve service"));
    EXPECT_EQ(source->answer(), kNoSession);
    EXPECT_TRUE(source->shows("session", creation("source", kPeer, "", 7236) + " -> 0"));
    EXPECT_EQ(source->count("log", "Succeeded to resolve service"), 0U);
    EXPECT_EQ(sink->count("log", "accept returns"), 0U);
}

TEST_F(TwoHostsTest, MalformedTriggersEndTheTriggerServiceAlone) {
    ASSERT_NO_FATAL_FAILURE(startPeer());
    const auto sink = device(Host::Peer, kNetworkScale);
    asio::io_context context;
    int lastPort = 0;
    for (const std::string& malformed : {std::string("\0\2\x1c", 3), std::string("\0\3\x1c\x44", 4),
                                         std::string("\1\2\x1c\x44", 4)}) {
        // Each preset makes a service of its own.
        EXPECT_EQ(sink->preset("p-sink"), "display");
        const int port = triggerPort(*sink);
        EXPECT_NE(port, lastPort);
        lastPort = port;
        tcp::socket stranger(context);
        ASSERT_FALSE(connectTo(stranger, port));
        asio::write(stranger, asio::buffer(malformed));
        stranger.shutdown(tcp::socket::shutdown_send);
        std::array<char, 1> nothing{};
        std::error_code end;
        asio::read(stranger, asio::buffer(nothing), end);
        EXPECT_TRUE(end);
        EXPECT_TRUE(test::waitUntil([&] {
            tcp::socket late(context);
            return connectTo(late, port) == asio::error::connection_refused;
        }));
        EXPECT_EQ(sink->count("log", "being triggered"), 0U);
    }
    EXPECT_EQ(findService("_display._tcp").value_or(ResolvedService{}).port, lastPort);

    const auto source = device(Host::Here, kWaitingScale / 2);
    EXPECT_EQ(source->command(kNewR2Test), "COMPLETE");
    EXPECT_EQ(source->command(kFindSink), kNoSession);
    EXPECT_TRUE(source->shows("log", "client connect failed with errno=111"));
    const int waited =
        std::atoi(source->after("log", "client connect failed after waiting for ").c_str());
    EXPECT_GT(waited, 10'000);
    EXPECT_LT(waited, 20'000);
    EXPECT_TRUE(source->shows("session", creation("source", kHere, kPeer, 7236) + " -> 0"));
    EXPECT_EQ(sink->count("session", "createWfdSession"), 0U);

    // The sink still does what it is told.
    source->mark();
    EXPECT_EQ(sink->preset("p-sink"), "display");
    EXPECT_EQ(source->command("sta_preset_testparameters,mdns_disc,enable,mdns_role,browser"),
              "COMPLETE");
    EXPECT_EQ(source->command(kFindSink).substr(0, 8), "COMPLETE");
    EXPECT_TRUE(sink->shows("report", "SessionState: ESTABLISHED"));
}

// A source that finds its sink, and the session of the two.
class R2SessionTest : public TwoHostsTest {
 protected:
    void SetUp() override {
        TwoHostsTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        ASSERT_NO_FATAL_FAILURE(startPeer());
        mSource = device(Host::Here, kNetworkScale);
        mSink = device(Host::Peer, kNetworkScale);
    }

    // From two devices that know nothing of each other.
    void startSession() {
        source().mark();
        sink().mark();
        EXPECT_EQ(sink().preset("p-sink"), "display");
        EXPECT_EQ(source().command(kNewR2Test), "COMPLETE");
        EXPECT_EQ(source().command("sta_preset_testparameters,mdns_disc,enable,mdns_role,browser,"
                                   "wfddevtype,source"),
                  "COMPLETE");
        const std::string before = "COMPLETE,WfdSessionID,";
        const std::string answer = source().command(kFindSink);
        ASSERT_EQ(answer.substr(0, before.size()), before);
        mId = answer.substr(before.size());
        EXPECT_TRUE(source().shows("session", creation("source", kHere, kPeer, 7236) + " -> 0"));
        EXPECT_TRUE(sink().shows("log", "being triggered " + kHere + " 7236"));
        EXPECT_TRUE(sink().shows("session", creation("sink", "", kHere, 7236) + " -> 0"));
        expectPlaying();
    }

    void expectPlaying() {
        expectBoth("report", "SessionState: ESTABLISHED");
        expectBoth("report", "StreamControlCompleted: " + mId + ", PLAY");
        EXPECT_TRUE(source().shows("compositor", "display "));
        EXPECT_TRUE(source().shows("session", "startUIBC -> 0"));
        EXPECT_TRUE(sink().shows("session", "setSurface of layer"));
        for (const TestDevice* const device : {mSource.get(), mSink.get()}) {
            const std::string state = device->after("report", "SessionState: ESTABLISHED, ");
            EXPECT_EQ(state.substr(state.rfind(' ') + 1), mId);
        }
    }

    void expectBoth(const std::string& component, const std::string& part) const {
        EXPECT_TRUE(mSource->shows(component, part));
        EXPECT_TRUE(mSink->shows(component, part));
    }

    // The library's part of the end comes after the report.
    void expectStopped(TestDevice& device) const {
        EXPECT_TRUE(device.shows("report", "SessionState: STOPPED"));
        EXPECT_TRUE(device.shows("session", "stopWfdSession id " + mId));
        expectNoSession(device);
    }

    TestDevice& source() { return *mSource; }
    TestDevice& sink() { return *mSink; }
    const std::string& id() const { return mId; }

 private:
    std::unique_ptr<TestDevice> mSource;
    std::unique_ptr<TestDevice> mSink;
    std::string mId;

 protected:
    void setId(const std::string& id) { mId = id; }
};

// Whose controller gives the commands.
class R2SessionFromTest : public R2SessionTest, public testing::WithParamInterface<const char*> {
 protected:
    bool fromSource() const { return std::string(GetParam()) == "Source"; }
    TestDevice& asking() { return fromSource() ? source() : sink(); }
    TestDevice& asked() { return fromSource() ? sink() : source(); }
};

TEST_P(R2SessionFromTest, ControlsBothEnds) {
    std::string lastId;
    for (int round = 0; round < 2; ++round) {
        ASSERT_NO_FATAL_FAILURE(startSession());
        EXPECT_NE(id(), lastId);
        lastId = id();
        const std::string control = "StreamControlCompleted: " + id() + ", ";
        for (const char* const method : {"PAUSE", "PLAY", "TEARDOWN"}) {
            source().mark();
            sink().mark();
            EXPECT_EQ(asking().command(frame(method)), "COMPLETE");
            expectBoth("report", control + method);
            EXPECT_EQ(asked().count("session", "_rtsp"), 0U) << "only one of the two was asked";
        }
        expectStopped(source());
        expectStopped(sink());
    }
}

TEST_P(R2SessionFromTest, EndsWithTheOtherDevice) {
    ASSERT_NO_FATAL_FAILURE(startSession());
    TestDevice& survivor = asked();
    survivor.mark();
    asking().kill();
    EXPECT_TRUE(survivor.shows("report", "Error: RTSPCloseCallback"));
    expectStopped(survivor);
    EXPECT_EQ(survivor.command(kNewR2Test), "COMPLETE");
}

INSTANTIATE_TEST_SUITE_P(By, R2SessionFromTest, testing::Values("Source", "Sink"),
                         [](const auto& by) { return std::string(by.param); });

TEST_F(R2SessionTest, CarriesTheUsersInputToTheSource) {
    ASSERT_NO_FATAL_FAILURE(startSession());
    source().send("sta_generate_event,Type,UIBC_Gen,UIBCEventType,Keyboard");
    EXPECT_TRUE(source().shows("log", "UIBC Event Generation code."));
    struct {
        const char* input;
        const char* tool;
    } const cases[] = {{"kind,key,code,a,action,down", "input keyevent 29"},
                       {"kind,touch,action,down", "input tap 400 500"},
                       {"kind,touch,action,move", "input tap 300 1000"}};
    for (const auto& c : cases) {
        EXPECT_EQ(sink().command(std::string("x_sink_input,") + c.input), "COMPLETE");
        EXPECT_TRUE(source().shows("tool", c.tool));
    }
    EXPECT_EQ(source().answer(), "COMPLETE");
    EXPECT_EQ(source().count("tool", "input "), 3U);
    EXPECT_EQ(sink().count("tool", "input "), 0U);
    EXPECT_EQ(source().command(frame("TEARDOWN")), "COMPLETE");
    expectStopped(sink());
    EXPECT_EQ(sink().command("x_sink_input,kind,touch,action,down"), kNoSession);
}

// The other way round: the source is registered and waits, the sink looks for it.
TEST_F(R2SessionTest, SinkFindsItsSource) {
    EXPECT_EQ(source().preset("source"), "displaysrc");
    source().send("start_wfd_connection,PeerAddress," + kPeer +
                  ",RtspPort,7236,PeerDevType,p-sink");
    EXPECT_TRUE(source().shows("session", "createWfdSession as source"));
    EXPECT_EQ(sink().command(kNewR2Test), "COMPLETE");
    const std::string answer = sink().command(kFindSource);
    EXPECT_EQ(source().answer(), answer);
    const std::string before = "COMPLETE,WfdSessionID,";
    ASSERT_EQ(answer.substr(0, before.size()), before);
    setId(answer.substr(before.size()));
    EXPECT_TRUE(sink().shows("session", creation("sink", kPeer, kHere, 7236) + " -> 0"));
    EXPECT_EQ(sink().count("log", "trigger Sink Connect"), 0U);
    expectPlaying();
    EXPECT_EQ(sink().command(frame("TEARDOWN")), "COMPLETE");
    expectStopped(source());
    expectStopped(sink());
}

}  // namespace
