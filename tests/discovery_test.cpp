// The R2 steps of the commands: registering under sta_preset_testparameters, finding the peer under
// start_wfd_connection, and being asked to connect.
#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "DiscoveryTest.h"
#include "Faults.h"
#include "TextFormat.h"

using hostplatform::Fault;
using hostplatform::format;
using hostplatform::ScopedFault;

namespace {

const char* wlanAddress = nullptr;  // that of the device's "wlan0", if it has one

}  // namespace

// The linker puts it before the real one (--wrap).
extern "C" int __real_ioctl(int descriptor, unsigned long operation, ...);
extern "C" int __wrap_ioctl(int descriptor, unsigned long operation, ...) {
    va_list arguments;
    va_start(arguments, operation);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    auto* const interface = static_cast<ifreq*>(argument);
    if (operation != SIOCGIFADDR || strcmp(interface->ifr_name, "wlan0") != 0 ||
        wlanAddress == nullptr) {
        return __real_ioctl(descriptor, operation, argument);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, wlanAddress, &address.sin_addr);
    memcpy(&interface->ifr_addr, &address, sizeof address);
    return 0;
}

namespace {

const std::string kAsk7236("\x00\x02\x1c\x44", 4);

class DiscoveryStepsTest : public DiscoveryTest {
 protected:
    ~DiscoveryStepsTest() override {
        sta_reset_default("");
        wfd_device_type = 0;
        wlanAddress = nullptr;
    }
    // Ends the session, and waits for the worker that stops the client: it would stop the next one.
    void endSession() const {
        EXPECT_TRUE(hostplatform::waitReported());
        sta_reset_default("");
        EXPECT_TRUE(journal().waitFor("session", "stopWfdSession", marked()));
        EXPECT_TRUE(hostplatform::waitReported());
    }
    // A peer that a browse for `type` finds, with these addresses.
    void peer(const std::string& type, int port, const std::vector<const char*>& addresses) {
        std::vector<Result> results;
        results.reserve(addresses.size());
        for (const char* const text : addresses) results.push_back(address(text));
        answer(type, {service("A peer")});
        answer("A peer", {resolved("peer.local.", port)});
        answer("peer.local.", results);
    }
    std::string sessionCall() const {
        const auto call = journal().waitFor("session", "createWfdSession", marked());
        return call ? call->text : "";
    }
    size_t loggedTimes(const std::string& line) const {
        return journal().count("log", "E/: " + line, marked());
    }
    static std::string storedAddress() {
        char text[64] = "";
        getmDNSPeerIPandPort(text, sizeof text, nullptr);
        return text;
    }
};

TEST_F(DiscoveryStepsTest, PresetRegistersAndAnswersTheName) {
    const char* const none = nullptr;
    const std::string tooLong(32, 'x');
    const struct {
        std::string command;
        const char* response;
        const char* registered;  // what DNSServiceRegister begins with
        size_t waits;
        const char* log;
    } cases[] = {
        {"mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink", "display (2)",
         "(0, 0, display, _display._tcp,", 0,
         "Succeeded to register service: display (2) _display._tcp. local.\n"},
        {"x,Y,MDNS_Disc,ENABLE,mdns_ROLE,Responder,WFDdevType,P-Sink", "display (2)",
         "(0, 0, display, _display._tcp,", 0, "Start register primary sink, wait 20 seconds\n"},
        {"mdns_disc,enable,mdns_role,responder,wfddevtype,source", "displaysrc",
         "(0, 0, displaysrc, _displaysrc._tcp, (null), (null), 7236,", 0,
         "Succeeded to register source service: displaysrc _display._tcp. local.\n"},
        {"mdns_disc,Enable,mdns_role,RESPONDER,wfddevtype,SOURCE", "displaysrc",
         "(0, 0, displaysrc, _displaysrc._tcp, (null), (null), 7236,", 0,
         "Start register source, wait 20 seconds\n"},
        {"mdns_disc,enable,mdns_role,responder,wfddevtype,s-sink", "", none, 10,
         "Received service name  \n"},
        {"mdns_disc,enable,mdns_role,responder", "", none, 10, "Received service name  \n"},
        {"mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink" + tooLong, "", none, 10,
         "Received service name  \n"},
        {"mdns_disc,enable,mdns_role,browser,wfddevtype,p-sink", none, none, 0,
         "DO nothing for now for p-sink browser"},
        {"mdns_disc,enable,mdns_role,Browser,wfddevtype,Source", none, none, 0,
         "DO nothing for now for source browser"},
        {"mdns_disc,enable,mdns_role,browser,wfddevtype,s-sink", none, none, 0, "Output calc"},
        {"mdns_disc,enable,mdns_role,other,wfddevtype,p-sink", none, none, 0, "Output calc"},
        {"mdns_disc,enable,wfddevtype,p-sink", none, none, 0, "Output calc"},
        {"mdns_disc,enable,mdns_role,responder" + tooLong + ",wfddevtype,p-sink", none, none, 0,
         "Output calc"},
        {"mdns_disc,disable,mdns_role,responder,wfddevtype,p-sink", none, none, 0, "Output calc"},
        {"mdns_disc,enable" + tooLong + ",mdns_role,responder,wfddevtype,p-sink", none, none, 0,
         "Output calc"},
        {"mdns_role,responder,wfddevtype,p-sink", none, none, 0, "Output calc"},
        {"", none, none, 0, "String token not found"},
    };
    answer("display", {service("display (2)")});
    answer("displaysrc", {service("displaysrc")});
    for (const auto& given : cases) {
        SCOPED_TRACE(given.command);
        resetmDNSParams();
        registerSource();  // an earlier test's
        EXPECT_STREQ(getInstanceName(), "displaysrc");
        mark();
        char unset = 0;
        char* response = &unset;
        EXPECT_EQ(sta_preset_testparameters(given.command.c_str(), &response), 0);
        EXPECT_EQ(response == nullptr, given.response == nullptr);
        EXPECT_STREQ(response, given.response);
        EXPECT_STREQ(instanceName, given.response == nullptr ? "" : given.response);
        free(response);
        EXPECT_EQ(tagged("").front(), "E: vestor: sta_preset_testparameters " + given.command);
        EXPECT_TRUE(journal().count("log", given.log, marked()) > 0) << given.log;
        EXPECT_EQ(loggedTimes("DO nothing"), strncmp(given.log, "DO", 2) == 0 ? 1U : 0U);
        // A name that comes may take some.
        EXPECT_TRUE(given.registered != nullptr || slept(1000) == given.waits) << slept(1000);
        // The earlier registration went first.
        const Lines dnsSd = calls("dns-sd");
        ASSERT_EQ(dnsSd.size(), given.registered == nullptr ? 1U : 2U);
        EXPECT_EQ(dnsSd[0], "DNSServiceRefDeallocate");
        if (given.registered != nullptr) {
            EXPECT_EQ(dnsSd[1].find(std::string("DNSServiceRegister") + given.registered), 0U);
        }
    }
}

TEST_F(DiscoveryStepsTest, PresetLooksUpEveryParameter) {
    const Lines names{"mdns_disc",     "mdns_role",     "wfddevtype",    "ctt_sequence1",
                      "ctt_sequence2", "ctt_sequence3", "ctt_sequence6", "Program",
                      "ProfileChange", "Parameter",     "testid",        "OptionalFeature"};
    std::string command;
    for (const std::string& name : names) command.insert(0, name + ",v,");
    char* response = nullptr;
    EXPECT_EQ(sta_preset_testparameters(command.c_str(), &response), 0);
    const std::string prefix = "E: vestor: DBG: strstr output ";
    Lines lookedUp;
    for (const std::string& line : tagged("")) {
        if (line.rfind(prefix, 0) != 0) continue;
        lookedUp.push_back(line.substr(prefix.size(), line.find(',') - prefix.size()));
    }
    EXPECT_EQ(lookedUp, names);
}

TEST_F(DiscoveryStepsTest, PresetWithoutMemoryOrResponse) {
    const char* const command = "mdns_disc,enable,mdns_role,responder,wfddevtype,source";
    EXPECT_EQ(sta_preset_testparameters(command, nullptr), -1);
    answer("displaysrc", {service("displaysrc")});
    const ScopedFault fault(Fault::Allocation);
    char unset = 0;
    char* response = &unset;
    EXPECT_EQ(sta_preset_testparameters(command, &response), -1);
    EXPECT_EQ(response, nullptr);
    EXPECT_EQ(tagged("").back(), "E: vestor: Calloc failed for respBuf");
    EXPECT_EQ(journal().count("memory", "calloc 1 x 11 at miracastSigma/sigma_miracast:", marked()),
              1U);
}

TEST_F(DiscoveryStepsTest, WaitsForTheInstanceName) {
    const struct {
        const char* name;
        int duringSleep;  // 0: before the first
        Result result;
        const char* instanceName;
        size_t sleeps;
    } cases[] = {
        {"displaysrc", 0, service("src (2)"), "src (2)", 0},
        {"displaysrc", 1, service("src"), "src", 1},
        {"display", 3, service("sink"), "sink", 3},
        {"display", 10, service("at last"), "at last", 10},
        {"displaysrc", 11, service("too late"), "", 10},
        {"displaysrc", 2, failure(), "", 10},
        {"display", 2, failure(), "", 10},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(format("%s during %d", given.name, given.duringSleep));
        resetmDNSParams();
        mark();
        const bool isSource = strcmp(given.name, "displaysrc") == 0;
        EXPECT_EQ(isSource ? registerSource() : registerPrimarySink(), 0);
        EXPECT_EQ(slept(1000), 0U);
        const auto happens = [&] { report(given.name, given.result); };
        if (given.duringSleep == 0) happens();
        onSleep(1000, given.duringSleep, happens);
        char* const name = getInstanceName();
        onSleep(0, 0, nullptr);
        EXPECT_EQ(name, instanceName);
        EXPECT_STREQ(name, given.instanceName);
        EXPECT_EQ(slept(1000), given.sleeps);
        EXPECT_EQ(loggedTimes("Received service name  \n"), given.sleeps);
        EXPECT_EQ(loggedTimes(isSource ? "Failed to register source service\n"
                                       : "Failed to register service\n"),
                  given.result.error == 0 ? 0U : 1U);
    }
    resetmDNSParams();
    answer("display", {service(std::string(64, 'n'))});
    registerPrimarySink();
    EXPECT_EQ(getInstanceName(), std::string(63, 'n'));
}

TEST_F(DiscoveryStepsTest, WaitsForThePeer) {
    const struct {
        int deviceType;
        int duringSleep;  // 0: before the first
        int result;
        size_t sleeps;
    } cases[] = {{0, 0, 0, 0},    {1, 1, 0, 1},    {0, 59, 0, 59},
                 {1, 60, -1, 60}, {0, 61, -1, 60}, {-5, 0, 0, 0}};
    for (const auto& given : cases) {
        SCOPED_TRACE(given.duringSleep);
        clear();
        mark();
        const bool source = given.deviceType == 0;
        const std::string id = source ? "122102" : "122101";
        const char* const type = source ? "_display._tcp" : "_displaysrc._tcp";
        answer("A peer", {resolved("peer.local.", 40001)});
        answer("peer.local.", {address("192.168.49.2")});
        EXPECT_EQ(discovermDNSPeer(given.deviceType), 0);
        EXPECT_EQ(tagged("").front(), "E: Start discovery of mdns peer\n");
        EXPECT_EQ(commands().back(), format("2 discover %s %s ", id.c_str(), type));
        const auto happens = [&] { report(type, service("A peer")); };
        if (given.duringSleep == 0) happens();
        onSleep(1000, given.duringSleep, happens);
        EXPECT_EQ(waitforDiscovery(), given.result);
        EXPECT_EQ(slept(1000), given.sleeps);
        EXPECT_NE(commands().back().find("stop-discover " + id), std::string::npos);
        onSleep(0, 0, nullptr);
    }
}

TEST_F(DiscoveryStepsTest, ResolvesTheFirstServiceOnly) {
    // A service that is lost counts, a failure does not.
    EXPECT_EQ(discovermDNSPeer(0), 0);
    report("_display._tcp", failure());
    report("_display._tcp", service("A sink", false));
    report("_display._tcp", service("Another"));
    EXPECT_EQ(loggedTimes("Failed to discover\n"), 1U);
    EXPECT_EQ(loggedTimes("discover a service : A sink _display._tcp.\n"), 1U);
    EXPECT_EQ(loggedTimes("already discovered a service, don't resolve this one\n"), 1U);
    EXPECT_EQ(journal().count("dns-sd", "DNSServiceResolve(", marked()), 1U);
    report("A sink", failure());
    EXPECT_EQ(loggedTimes("Failed to resolve service\n"), 1U);
    EXPECT_EQ(waitforDiscovery(), -1);

    // The next discovery takes a service again.
    EXPECT_TRUE(waitForgotten());
    mark();
    EXPECT_EQ(discovermDNSPeer(0), 0);
    report("_display._tcp", service("Another"));
    EXPECT_EQ(journal().count("dns-sd", "DNSServiceResolve(0, 0, Another, ", marked()), 1U);
}

TEST_F(DiscoveryStepsTest, KeepsTheLastIpv4Address) {
    const struct {
        const char* address;
        bool stored;
    } cases[] = {{"fe80::1234:5678:9abc:def0", false},
                 {"192.168.49.2", true},
                 {"fe80::1234:5:678", false},
                 {"192.168.100.100", true},
                 {"fe80::1234:5:67", true},  // told apart by their length alone
                 {"192.168.49.20", true}};
    peer("_display._tcp", 40001, {});
    discovermDNSPeer(0);
    std::string expected = storedAddress();
    for (const auto& given : cases) {
        SCOPED_TRACE(given.address);
        mark();
        report("peer.local.", address(given.address));
        EXPECT_EQ(loggedTimes(format("Succeeded to resolve service: A peer _display._tcp. local. "
                                     "%s 40001\n",
                                     given.address)),
                  1U);
        EXPECT_EQ(loggedTimes("ignore ipv6 address"), given.stored ? 0U : 1U);
        if (given.stored) expected = given.address;
        EXPECT_EQ(storedAddress(), expected);
    }
    report("peer.local.", failure());
    EXPECT_EQ(storedAddress(), expected);
    EXPECT_STREQ(actualvalues.serviceName, "A peer");
    EXPECT_STREQ(actualvalues.domain, "local.");

    // Only IPv6: nothing is found, and the last peer stays.
    clear();
    peer("_display._tcp", 40002, {"fe80::1234:5678:9abc:def0"});
    discovermDNSPeer(0);
    EXPECT_EQ(waitforDiscovery(), -1);
    EXPECT_EQ(storedAddress(), expected);
    EXPECT_EQ(actualvalues.port, 40001);
}

TEST_F(DiscoveryStepsTest, CutsThePeersAddress) {
    peer("_display._tcp", 40001, {"192.168.100.100"});
    discovermDNSPeer(0);
    EXPECT_EQ(waitforDiscovery(), 0);
    const std::string before(20, '#');
    const struct {
        int size;
        const char* text;  // null: nothing is written
    } cases[] = {{20, "192.168.100.100"},
                 {16, "192.168.100.100"},
                 {15, "192.168.100.10"},
                 {2, "1"},
                 {1, ""},
                 {0, nullptr},
                 {-1, nullptr}};
    for (const auto& given : cases) {
        std::string buffer = before;
        int port = 0;
        EXPECT_EQ(getmDNSPeerIPandPort(buffer.data(), given.size, &port), 0);
        std::string expected = before;
        if (given.text != nullptr) {
            expected.replace(0, strlen(given.text) + 1, given.text, strlen(given.text) + 1);
        }
        EXPECT_EQ(buffer, expected);
        EXPECT_EQ(port, 40001);
    }
}

TEST_F(DiscoveryStepsTest, StartsASessionWithTheDiscoveredPeer) {
    Sink sink;
    sink.listen();
    const int sinkPort = sink.port();
    const struct {
        const char* name;
        int peerType;
        int port;             // the peer's
        const char* address;  // and its address; null when there is none
        const char* wlan;
        std::string call;
    } cases[] = {
        {"source", 1, sinkPort, "127.0.0.1", "192.168.49.9",
         "as source (R2), local \"192.168.49.9\", peer \"127.0.0.1\" port 7236 -> 0"},
        {"source without an address", 1, sinkPort, "127.0.0.1", nullptr,
         "as source (R2), local \"\", peer \"127.0.0.1\" port 7236 -> 0"},
        {"source alone", 1, 0, nullptr, "192.168.49.9",
         "as source (R2), local \"192.168.49.9\", peer \"10.0.0.9\" port 7236 -> 0"},
        {"sink", 0, sinkPort, "127.0.0.1", "192.168.49.9",
         "as sink (R2), local \"192.168.49.9\", peer \"127.0.0.1\" port " +
             std::to_string(sinkPort) + " -> 0"},
        {"sink alone", 0, 0, nullptr, "192.168.49.9",
         "as sink (R2), local \"192.168.49.9\", peer \"10.0.0.9\" port -100 -> 0"},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(given.name);
        resetmDNSParams();
        wlanAddress = given.wlan;
        const bool isSource = given.peerType == 1;
        const char* const type = isSource ? "_display._tcp" : "_displaysrc._tcp";
        const bool found = given.address != nullptr;
        if (found) {
            peer(type, given.port, {given.address});
        } else {
            answer(type, {});
        }
        mark();
        testing::internal::CaptureStdout();
        char* response = nullptr;
        const int result = start_wfd_connection("", "10.0.0.9", -100, given.peerType, &response);
        const std::string output = testing::internal::GetCapturedStdout();
        EXPECT_EQ(result, 0);
        EXPECT_EQ(output.substr(0, output.rfind(" \n") + 2),
                  "discovering mdns peer \n" +
                      (found ? format("%s %d \n", given.address, given.port) : ""));
        ASSERT_NE(response, nullptr);
        EXPECT_EQ(strlen(response), 8U);
        free(response);
        EXPECT_EQ(wfd_device_type, 1 - given.peerType);
        EXPECT_EQ(sessionCall(), "createWfdSession " + given.call);
        EXPECT_EQ(
            journal().count("dns-sd", std::string("DNSServiceBrowse(0, 0, ") + type, marked()), 1U);
        EXPECT_EQ(commands().back().find("stop-discover") != std::string::npos, true);
        const bool triggers = isSource && found;
        EXPECT_EQ(loggedTimes("trigger Sink Connect"), triggers ? 1U : 0U);
        EXPECT_EQ(triggers ? sink.received() : "00021c44", "00021c44");
        EXPECT_FALSE(sink.reached());
        endSession();
    }
}

TEST_F(DiscoveryStepsTest, StartsASessionWithASourceThatAsks) {
    answer("display", {service("display")});
    for (const int role : {1, 0}) {
        SCOPED_TRACE(role);
        resetmDNSParams();
        mark();
        EXPECT_EQ(registerPrimarySink(), 0);
        EXPECT_STREQ(getInstanceName(), "display");
        int port = -1;
        for (const std::string& line : tagged("WFDTriggerTcp")) {
            sscanf(line.c_str(), "V: TCP Server port Num = %d", &port);
        }
        EXPECT_EQ(journal().count("dns-sd", format("(null), %d, 0:)", port), marked()), 1U);
        wfd_device_type = role;
        sendCommand(port, kAsk7236);
        EXPECT_TRUE(logged("being triggered 127.0.0.1 7236\n"));
        EXPECT_FALSE(logged("Waiting for session ID\n"));
        EXPECT_EQ(
            sessionCall(),
            format("createWfdSession as %s (R2), local \"\", peer \"127.0.0.1\" port 7236 -> 0",
                   role == 1 ? "sink" : "source"));
        endSession();
    }
}

TEST_F(DiscoveryStepsTest, DiscoversPrimarySinksForAWhile) {
    peer("_display._tcp", 40001, {"192.168.49.7"});
    discovermDNSPeer(0);
    EXPECT_EQ(waitforDiscovery(), 0);
    EXPECT_TRUE(waitForgotten());
    mark();
    // The peer that was taken stays taken.
    onSleep(20000, 1, [this] {
        EXPECT_TRUE(journal().waitFor("log", "already discovered a service", marked()));
    });
    EXPECT_EQ(discoverPrimarySink(), 0);
    EXPECT_EQ(slept(20000), 1U);
    EXPECT_NE(commands().back().find("stop-discover 122102"), std::string::npos);
}

}  // namespace
