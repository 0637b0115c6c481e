// The discovery steps of the commands: registering in sta_preset_testparameters, finding the peer
// in start_wfd_connection, and being asked to connect.
#include <cstring>

#include "DiscoveryTest.h"
#include "local_address.h"

namespace {

class DiscoveryStepsTest : public DiscoveryTest {
 protected:
    // A peer that a browse for `type` finds.
    void peer(const std::string& type, int port, const char* itsAddress) {
        answer(type, {service("A peer")});
        answer("A peer", {resolved(port)});
        answer("peer.local.", {address(itsAddress)});
    }
    static std::string storedAddress() {
        char text[64] = "";
        EXPECT_EQ(getmDNSPeerIPandPort(text, sizeof text, nullptr), 0);
        return text;
    }
};

TEST_F(DiscoveryStepsTest, PresetRegistersAndAnswersTheName) {
    const std::string enable = "mdns_disc,enable,";
    const std::string responder = enable + "mdns_role,responder";
    const std::tuple<std::string, const char*, Lines> cases[] = {
        {"x,MDNS_Disc,ENABLE,mdns_ROLE,Responder,WFDdevType,P-Sink",
         "display (2)",
         {"display, _display._tcp,"}},
        {responder + ",wfddevtype,SOURCE",
         "displaysrc",
         {"displaysrc, _displaysrc._tcp, (null), (null), 7236, )"}},
        {responder + ",wfddevtype,s-sink", "", {}},
        {responder, "", {}},
        {responder + std::string(32, 'x') + ",wfddevtype,p-sink", nullptr, {}},
        {enable + "wfddevtype,p-sink", nullptr, {}},
        {"mdns_disc,disable,mdns_role,responder,wfddevtype,p-sink", nullptr, {}},
    };
    answer("display", {service("display (2)")});
    answer("displaysrc", {service("displaysrc")});
    for (const auto& [command, answered, registered] : cases) {
        SCOPED_TRACE(command);
        resetmDNSParams();
        EXPECT_EQ(registerSource(), 0);  // an earlier test's
        EXPECT_STREQ(getInstanceName(), "displaysrc");
        mark();
        char unset = 0;
        char* response = &unset;
        EXPECT_EQ(sta_preset_testparameters(command.c_str(), &response), 0);
        EXPECT_STREQ(response, answered);
        EXPECT_EQ(instanceName, taken(response));
        // The earlier registration goes first.
        const Lines dnsSd = calls("dns-sd");
        ASSERT_EQ(dnsSd.size(), 1 + registered.size());
        EXPECT_EQ(dnsSd[0], "DNSServiceRefDeallocate displaysrc");
        for (const std::string& call : registered) {
            EXPECT_EQ(dnsSd[1].find("register(0, 0, " + call), 0U) << dnsSd[1];
        }
    }
    EXPECT_EQ(sta_preset_testparameters(responder.c_str(), nullptr), -1);
}

TEST_F(DiscoveryStepsTest, TheInstanceNameIsWaitedFor) {
    const struct {
        bool sink;
        int duringSleep;  // 0: before the first
        Result result;
        std::string instanceName;
        size_t sleeps;
    } cases[] = {
        {true, 0, service(std::string(64, 'n')), std::string(63, 'n'), 0},
        {false, 1, service("src"), "src", 1},
        {true, 10, service("at last"), "at last", 10},
        {false, 11, service("too late"), "", 10},
        {true, 2, failure(), "", 10},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(given.duringSleep);
        resetmDNSParams();
        mark();
        EXPECT_EQ(given.sink ? registerPrimarySink() : registerSource(), 0);
        onSleep(1000, given.duringSleep,
                [&] { report(given.sink ? "display" : "displaysrc", given.result); });
        EXPECT_EQ(getInstanceName(), given.instanceName);
        EXPECT_EQ(slept(1000), given.sleeps);
    }
}

TEST_F(DiscoveryStepsTest, ThePeerIsWaitedFor) {
    for (const auto& [deviceType, sleeps] : {std::pair(1, 1), {0, 59}, {1, 60}, {-5, 0}}) {
        SCOPED_TRACE(sleeps);
        mDnsClearInstances();
        mark();
        const std::string type = deviceType == 0 ? "_display._tcp" : "_displaysrc._tcp";
        peer(type, 40001, "192.168.49.2");
        answer(type, {});
        EXPECT_EQ(discovermDNSPeer(deviceType), 0);
        EXPECT_EQ(calls("dns-sd"), Lines{"browse(0, 0, " + type + ", (null))"});
        onSleep(1000, sleeps, [&] { report(type, service("A peer")); });
        EXPECT_EQ(waitforDiscovery(), sleeps < 60 ? 0 : -1);
        EXPECT_EQ(slept(1000), static_cast<size_t>(sleeps));
        EXPECT_EQ(journal().count("dns-sd", "DNSServiceRefDeallocate " + type, marked()), 1U);
    }
}

TEST_F(DiscoveryStepsTest, TheFirstServiceIsResolved) {
    const auto resolutions = [this](const std::string& name) {
        return journal().count("dns-sd", "resolve(0, 0, " + name, marked());
    };
    EXPECT_EQ(discovermDNSPeer(0), 0);
    for (const Result& result : {failure(), service("A sink", 0), service("Another")}) {
        report("_display._tcp", result);
    }
    EXPECT_EQ(resolutions("A sink, _display._tcp., local."), 1U);
    EXPECT_EQ(resolutions("Another"), 0U);
    report("A sink", failure());
    EXPECT_EQ(waitforDiscovery(), -1);
    // The next discovery takes a service again.
    EXPECT_EQ(discovermDNSPeer(0), 0);
    report("_display._tcp", service("Another"));
    EXPECT_EQ(resolutions("Another"), 1U);
    report("Another", resolved(40001));
    report("peer.local.", address("192.168.49.2"));
    EXPECT_EQ(waitforDiscovery(), 0);
    // For a while others may be found, but the peer stays.
    onSleep(20000, 1, [this] { report("_display._tcp", service("A third")); });
    EXPECT_EQ(discoverPrimarySink(), 0);
    EXPECT_EQ(slept(20000), 1U);
    EXPECT_EQ(resolutions("A third"), 0U);
    EXPECT_EQ(calls("dns-sd").back(), "DNSServiceRefDeallocate _display._tcp");
}

TEST_F(DiscoveryStepsTest, TheLastIpv4AddressIsKept) {
    peer("_display._tcp", 40001, "192.168.49.1");
    EXPECT_EQ(discovermDNSPeer(0), 0);
    EXPECT_EQ(waitforDiscovery(), 0);
    for (const char* const text : {"fe80::1234:5:678", "192.168.100.100", "fe80::1234:5:67",
                                   "192.168.49.20", "fe80::1234:5:678", "192.168.100.100"}) {
        const std::string before = storedAddress();
        report("peer.local.", address(text));
        EXPECT_EQ(storedAddress(), strlen(text) > 15 ? before : text);
    }
    report("peer.local.", failure());
    EXPECT_STREQ(actualvalues.serviceName, "A peer");
    for (const auto& [size, text] :
         {std::pair(16, "192.168.100.100"), {15, "192.168.100.10"}, {1, ""}}) {
        std::string buffer(20, '#');
        int port = 0;
        EXPECT_EQ(getmDNSPeerIPandPort(buffer.data(), size, &port), 0);
        EXPECT_EQ(buffer.substr(0, static_cast<size_t>(size) + 1), text + std::string("\0#", 2));
        EXPECT_EQ(port, 40001);
    }
    for (const int size : {0, -1}) {
        char untouched = '#';
        EXPECT_EQ(getmDNSPeerIPandPort(&untouched, size, nullptr), 0);
        EXPECT_EQ(untouched, '#');
    }
    // Only IPv6: nothing is found, and the last peer stays.
    mDnsClearInstances();
    peer("_display._tcp", 40002, "fe80::1234:5678:9abc:def0");
    EXPECT_EQ(discovermDNSPeer(0), 0);
    EXPECT_EQ(waitforDiscovery(), -1);
    EXPECT_EQ(storedAddress(), "192.168.100.100");
    EXPECT_EQ(actualvalues.port, 40001);
}

TEST_F(DiscoveryStepsTest, ASinkConnectsToTheSource) {
    const auto created = [this] {
        const auto call = journal().waitFor("session", "createWfdSession as ", marked());
        sta_reset_default("");
        mark();
        return call ? call->text.substr(20) : "";
    };
    // To the one that it finds: only sinks are asked to connect.
    Sink source;
    source.listen();
    peer("_displaysrc._tcp", source.port(), "127.0.0.1");
    char* response = nullptr;
    EXPECT_EQ(start_wfd_connection("", "10.0.0.9", -100, 0, &response), 0);
    EXPECT_EQ(taken(response).size(), 8U);
    EXPECT_EQ(created(), "sink, local \"127.0.0.1\", peer \"127.0.0.1\" port " +
                             std::to_string(source.port()) + " -> 0");
    EXPECT_FALSE(source.reached());
    // To the one that asks.
    registerPrimarySink();
    sendTrigger(triggerPort());
    EXPECT_EQ(created(), "sink, local \"\", peer \"127.0.0.1\" port 7236 -> 0");
}

TEST_F(DiscoveryStepsTest, TheLocalAddressIsThatOfTheInterface) {
    char text[21] = "kept";
    EXPECT_EQ(getSigmaLocalIpAddress(nullptr, 20, "lo"), -1);
    EXPECT_EQ(getSigmaLocalIpAddress(text, 19, "lo"), -1);
    for (const char* const name : {"none0", "a name of more than fifteen characters", ""}) {
        EXPECT_EQ(getSigmaLocalIpAddress(text, 20, *name == 0 ? nullptr : name), -1);
    }
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(getSigmaLocalIpAddress(text, 20, "lo"), 0);
    EXPECT_STREQ(text, "127.0.0.1");
}

}  // namespace
