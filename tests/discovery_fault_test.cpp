// What discovery and the trigger make of a device and a network that fail them.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

#include "FaultTest.h"
#include "TextFormat.h"
#include "cutils/properties.h"

using hostplatform::Fault;
using hostplatform::format;

namespace {

constexpr int kForEver = INT_MAX;
const std::string kAsk7236("\x00\x02\x1c\x44", 4);

class DiscoveryFaultTest : public FaultTest {
 protected:
    DiscoveryFaultTest() { usual(); }
    ~DiscoveryFaultTest() override {
        wfd_device_type = 0;
        sta_reset_default("");
    }

    // This device is registered as "display" and finds a sink.
    void usual() {
        answer("display", {service("display")});
        answer("_display._tcp", {service("A sink")});
        answer("A sink", {resolved("sink.local.", mSink.port())});
        answer("sink.local.", {address("127.0.0.1")});
    }
    // For the length of a scope this request has a failure for its result.
    auto failing(const std::string& name) {
        return [=]() -> std::shared_ptr<void> {
            answer(name, {failure()});
            return {nullptr, [this](void*) { usual(); }};
        };
    }

    std::string preset() const {
        char* response = nullptr;
        const int result = sta_preset_testparameters(
            "mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink", &response);
        std::string text = format("%d '%s'", result, response == nullptr ? "(null)" : response);
        free(response);
        return text;
    }

    // Registers a sink, and asks it to connect.
    std::string offer() const {
        mDnsClearInstances();
        const uint64_t begin = journal().mark();
        setTriggerCallback(triggered<'t'>);
        const std::string result =
            std::to_string(mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, noted<'r'>));
        int port = 0;
        for (const std::string& line : journal().texts("log", begin)) {
            sscanf(line.c_str(), "V/WFDTriggerTcp: TCP Server port Num = %d", &port);
        }
        if (port == 0) return result + ", no port";
        try {
            sendCommand(port, kAsk7236);
        } catch (const std::system_error&) {  // refused
        }
        const size_t asked = journal().count("callback", "t(127.0.0.1, 7236)", begin);
        return result + (asked == 0 ? ", not triggered" : ", triggered");
    }

    // Asks the sink to connect.
    std::string trigger() {
        const std::string result = std::to_string(triggerSinkConnection("192.168.49.9", 7236));
        return result + ", sent " + (mSink.reached() ? mSink.received() : "to nobody");
    }

    // A session with the sink, if it is found, and without it otherwise.
    std::string start() {
        resetmDNSParams();
        const uint64_t begin = journal().mark();
        char* response = nullptr;
        const int result = start_wfd_connection("", "10.0.0.9", -100, 1, &response);
        std::string text = format("%d %s", result, response == nullptr ? "nothing" : "session");
        free(response);
        if (mSink.reached()) text += ", triggered " + mSink.received();
        EXPECT_TRUE(hostplatform::waitReported());
        const auto call = journal().waitFor("session", "createWfdSession", begin);
        EXPECT_TRUE(call);
        if (call) text += call->text.substr(call->text.find(", peer"));
        return text;
    }
    void endSession() const {
        const uint64_t begin = journal().mark();
        sta_reset_default("");
        EXPECT_TRUE(journal().waitFor("session", "stopWfdSession", begin));
        EXPECT_TRUE(hostplatform::waitReported());
    }

    Sink mSink;
};

TEST_F(DiscoveryFaultTest, Presets) {
    const auto preset = [this] { return DiscoveryFaultTest::preset(); };
    const auto presetStopped = [this] {
        resetmDNSParams();
        property_set("ctl.stop", "mdnsd");
        mark();
        const std::string outcome = DiscoveryFaultTest::preset();
        return outcome + format(", looked %zu times", slept(200));
    };
    const std::string named = "0 'display'";
    check(
        {
            {"no memory for the answer",
             device(Fault::Allocation),
             preset,
             "-1 '(null)'",
             {"E/: vestor: Calloc failed for respBuf"},
             named},
            {"daemon never there",
             device(Fault::PropertyService),
             presetStopped,
             "0 'display', looked 25 times",
             {"D/MDnsDS: Starting MDNSD"},
             "0 'display', looked 1 times"},
            {"no socket pair",
             system(SystemCall::SocketPair, EMFILE),
             preset,
             "0 ''",
             {"E/MDnsDS: Error creating the monitor's control socket - got 24",
              "V/WFDmDns: sendMsg 501 mdnssd monitor is not running 0"},
             named},
            {"no thread",
             system(SystemCall::ThreadCreation, EAGAIN),
             preset,
             "0 ''",
             {"E/MDnsDS: Error creating the monitor's thread - got 11",
              "V/WFDmDns: sendMsg 501 mdnssd monitor is not running 0"},
             named},
            {"no memory for the request",
             system(SystemCall::ReservedNew, ENOMEM),
             preset,
             "0 ''",
             {"V/WFDmDns: sendMsg 501 RequestId already in use during"},
             named},
            {"refused",
             dnsSd,
             preset,
             "0 ''",
             {"got an error from DNSServiceRegister -65537", "V/WFDmDns: sendMsg 501 "},
             named},
            {"failed",
             failing("display"),
             preset,
             "0 ''",
             {"E/: Failed to register service\n"},
             named},
            {"no memory for the result",
             system(SystemCall::Malloc, ENOMEM),
             preset,
             named,
             {"W/MDnsDS: malloc error (Cannot allocate memory)",
              "V/WFDmDns: sendBroadcast 606 122110 (null) 0"},
             named},
            {"no less memory for the result",
             system(SystemCall::Realloc, ENOMEM),
             preset,
             named,
             {"V/WFDmDns: sendBroadcast 606 122110 \"display\" 0"},
             named},
            {"no memory for its line",
             system(SystemCall::Malloc, ENOMEM, 2),
             preset,
             named,
             {"V/WFDmDns: sendBroadcast 606  0"},
             named},
            {"poll fails",
             system(SystemCall::Poll, ENOMEM),
             preset,
             named,
             {"E/MDnsDS: Error in poll - got 12"},
             named},
            {"the monitor reads nothing",
             system(SystemCall::Read, EIO),
             preset,
             named,
             {"E/MDnsDS: Error in reading the control socket - got 5"},
             named},
        },
        resetmDNSParams);
}

TEST_F(DiscoveryFaultTest, TriggerServers) {
    const auto offer = [this] { return DiscoveryFaultTest::offer(); };
    const std::string works = "200, triggered";
    const std::string ended = "E/WFDTriggerTcp: srv: accept error -1";
    check(
        {
            {"no socket",
             system(SystemCall::Socket, EMFILE),
             offer,
             "200, no port",
             {"E/WFDTriggerTcp: RTP port Bind failed", "E/WFDTriggerTcp: getsockname error",
              "E/WFDTriggerTcp: listen error -1 9", ended},
             works},
            {"not bound",
             system(SystemCall::Bind, EADDRINUSE),
             offer,
             "200, no port",
             {"E/WFDTriggerTcp: RTP port Bind failed", "V/WFDTriggerTcp: bind ok 0",
              "V/WFDTriggerTcp: TCP Server port Num = 0"},
             works},
            {"no name",
             system(SystemCall::GetSockName, ENOBUFS),
             offer,
             "200, no port",
             {"E/WFDTriggerTcp: getsockname error", "V/WFDTriggerTcp: listen ok 0"},
             works},
            {"not listening",
             system(SystemCall::Listen, EADDRINUSE),
             offer,
             "200, not triggered",
             {"E/WFDTriggerTcp: listen error -1 98"},
             works},
            {"no thread",
             device(Fault::ThreadCreation),
             offer,
             "-1, not triggered",
             {"E/MDnsDS: Error creating the monitor's thread - got 11",
              "E/WFDmDns: no trigger server: Resource temporarily unavailable"},
             works},
            {"no connection",
             system(SystemCall::Accept, EMFILE, kForEver),
             offer,
             "200, not triggered",
             {ended},
             works},
            {"nothing read",
             system(SystemCall::Read, ECONNRESET, kForEver),
             offer,
             "200, not triggered",
             {"E/WFDTriggerTcp: readAll error -1 after read 0 bytes",
              "E/WFDTriggerTcp: Not enough content for request connection command",
              "E/WFDTriggerTcp: Failed to read command"},
             works},
        },
        [] { mDnsClearInstances(); });
}

TEST_F(DiscoveryFaultTest, TriggerClients) {
    discovermDNSPeer(0);
    ASSERT_EQ(waitforDiscovery(), 0);
    mSink.listen();
    const auto trigger = [this] { return DiscoveryFaultTest::trigger(); };
    const std::string works = "0, sent 00021c44";
    const std::string first = "E/WFDTriggerTcp: client connect failed with errno=";
    check(
        {
            {"no socket",
             system(SystemCall::Socket, EMFILE, kForEver),
             trigger,
             "0, sent to nobody",
             {"E/WFDTriggerTcp: client: socket error 24", "V/WFDTriggerTcp: write 0 2 28 68"},
             works},
            {"refused at first",
             system(SystemCall::Connect, ECONNREFUSED, 3),
             trigger,
             works,
             {first + "111", "E/WFDTriggerTcp: client Connected"},
             works},
            {"unreachable",
             system(SystemCall::Connect, ENETUNREACH, kForEver),
             trigger,
             "0, sent to nobody",
             {first + "101",
              "E/WFDTriggerTcp: client connect failed after waiting for 10200 ms (MAX = 10000 ms)",
              "E/WFDTriggerTcp: client failed with errno=101"},
             works},
            {"not sent",
             system(SystemCall::Send, EPIPE),
             trigger,
             "0, sent ",
             {"V/WFDTriggerTcp: trigger 7236", "V/WFDTriggerTcp: write 0 2 28 68"},
             works},
        },
        [] {});
}

TEST_F(DiscoveryFaultTest, DiscoveredSessions) {
    mSink.listen();
    const auto start = [this] { return DiscoveryFaultTest::start(); };
    const std::string works = "0 session, triggered 00021c44, peer \"127.0.0.1\" port 7236 -> 0";
    const std::string alone = "0 session, peer \"10.0.0.9\" port 7236 -> 0";
    check(
        {
            {"no socket for the address",
             system(SystemCall::Socket, EMFILE),
             start,
             works,
             {"E/: getSigmaLocalIpAddress :Error in creating socket \n"},
             works},
            {"no memory for the request",
             system(SystemCall::ReservedNew, ENOMEM),
             start,
             alone,
             {"E/MDnsDS: requestId 122102 already in use during discover call"},
             works},
            {"browse refused",
             dnsSd,
             start,
             alone,
             {"E/MDnsDS: Discover request 122102 got an error from DNSServiceBrowse -65537"},
             works},
            {"browse failed",
             failing("_display._tcp"),
             start,
             alone,
             {"E/: Failed to discover\n", "E/MDnsDS: discover failure for 122102, error= -65537"},
             works},
            {"not resolved",
             failing("A sink"),
             start,
             alone,
             {"E/: Failed to resolve service\n",
              "E/MDnsDS: resolve failure for 122111, error= -65537"},
             works},
            {"no address",
             failing("sink.local."),
             start,
             alone,
             {"E/: Failed to resolve service\n",
              "E/MDnsDS: getAddrInfo failure for 122112, error= -65537"},
             works},
        },
        [this] { endSession(); });
}

// A monitor without its poll set cannot go on, nor the process with it.
TEST_F(DiscoveryFaultTest, PollSetNeedsMemory) {
#ifdef EMULATED
    GTEST_SKIP() << "an emulated program cannot start itself again";
#endif
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto starts = [this] {
        const ScopedSystemFault none(SystemCall::Calloc, ENOMEM);
        const uint64_t begin = journal().mark();
        mDnsUnregisterWfd();
        journal().waitFor("log", "Going to poll", begin);
    };
    EXPECT_EXIT(starts(), testing::KilledBySignal(SIGABRT),
                "F MDnsDS *: initial calloc failed on mPollFds with a size of 80");
}

}  // namespace
