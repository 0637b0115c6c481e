// The discovery object of the process on the fake DNS-SD client library: the commands it gives to
// its channel, and what becomes of their results.
#include <climits>
#include <functional>

#include "DiscoveryTest.h"
#include "Faults.h"
#include "TextFormat.h"
#include "wfd_services.h"

using hostplatform::Fault;
using hostplatform::format;
using hostplatform::ScopedFault;

namespace {

constexpr int kBothSinks = WFD_R2_PRIMARY_SINK | WFD_R2_SECONDARY_SINK;
const std::string kAsk7236("\x00\x02\x1c\x44", 4);

class WfdMdnsTest : public DiscoveryTest {
 protected:
    // The port of the trigger server made last, as it was logged.
    int triggerPort() const {
        int port = -1;
        for (const std::string& line : tagged("WFDTriggerTcp")) {
            sscanf(line.c_str(), "V: TCP Server port Num = %d", &port);
        }
        return port;
    }
    static MDnsWfdServiceInfo found(const char* name) {
        MDnsWfdServiceInfo info{};
        snprintf(info.serviceName, sizeof info.serviceName, "%s", name);
        snprintf(info.regType, sizeof info.regType, "_display._tcp.");
        snprintf(info.domain, sizeof info.domain, "local.");
        return info;
    }
    static int resolve(const char* name, MDnsRegisterCallback callback) {
        const MDnsWfdServiceInfo info = found(name);
        return mDnsResolveWfd(&info, callback);
    }
    // Waits until a command given in a result has been replied to.
    bool replied(const std::string& reply) const {
        return journal().waitFor("log", "V/WFDmDns: sendMsg " + reply, marked()).has_value();
    }
};

TEST_F(WfdMdnsTest, KnowsTheServicesOfOneType) {
    for (const int type : {0, 3, 5, 6, 8, -1, INT_MIN, INT_MAX}) {
        EXPECT_STREQ(wfdServiceOf(type).name, "");
        EXPECT_STREQ(wfdServiceOf(type).regType, "");
        EXPECT_EQ(wfdServiceOf(type).requestId, 0);
    }
}

TEST_F(WfdMdnsTest, Registers) {
    const struct {
        int type;
        const char* words;
        const char* call;
    } cases[] = {
        {WFD_R2_PRIMARY_SINK, "display _display._tcp", "display, _display._tcp"},
        {WFD_R2_SECONDARY_SINK, "displayssink _displayssink._tcp",
         "displayssink, _displayssink._tcp"},
        {WFD_R2_SOURCE, "displaysrc _displaysrc._tcp", "displaysrc, _displaysrc._tcp"},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(given.call);
        clear();
        mark();
        const bool isSource = given.type == WFD_R2_SOURCE;
        const auto enroll = [&](MDnsRegisterCallback callback) {
            return isSource ? mDnsRegisterWfdSource(nullptr, 7237, callback)
                            : mDnsRegisterWfdSink(given.type, callback);
        };
        EXPECT_EQ(enroll(noted<'a'>), 200);
        const int port = isSource ? 7237 : triggerPort();
        EXPECT_EQ(commands(), (Lines{"1 start-service ",
                                     format("2 register 122110 %s %d  ", given.words, port)}));
        EXPECT_EQ(calls("dns-sd"),
                  Lines{format("DNSServiceRegister(0, 0, %s, (null), (null), %d, 0:)", given.call,
                               port)});

        // A second one has the callback, and the first one's registration.
        mark();
        EXPECT_EQ(enroll(noted<'b'>), 501);
        EXPECT_EQ(commands(), (Lines{"3 start-service ",
                                     format("4 register 122110 %s %d  ", given.words, port)}));
        EXPECT_TRUE(replied("402 Service already running 0"));
        report(wfdServiceOf(given.type).name, service("the name"));
        report(wfdServiceOf(given.type).name, failure());
        report(wfdServiceOf(given.type).name, service("another"));
        EXPECT_EQ(callbacks(3), (Lines{"b(0, the name, _display._tcp., local., , 0)", "b(605)",
                                       "b(0, another, _display._tcp., local., , 0)"}));

        mark();
        EXPECT_EQ(mDnsUnregisterWfd(), 200);
        EXPECT_EQ(mDnsUnregisterWfd(), -1);
        EXPECT_EQ(commands(), Lines{"5 stop-register 122110 "});
        EXPECT_TRUE(waitForgotten());
        EXPECT_EQ(enroll(noted<'c'>), 200);
    }
}

TEST_F(WfdMdnsTest, LogsACommandWordByWord) {
    EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, noted<'a'>), 200);
    const std::string port = std::to_string(triggerPort());
    EXPECT_EQ(tagged("WFDmDns"),
              (Lines{"V: runCommand 2: 1 start-service ", "V: runCommand argv[0] = 1",
                     "V: runCommand argv[1] = start-service", "V: sendMsg 200 Service Started 0",
                     "V: startService result 200", "V: register sink, tcp port " + port,
                     "V: runCommand 7: 2 register 122110 display _display._tcp " + port + "  ",
                     "V: runCommand argv[0] = 2", "V: runCommand argv[1] = register",
                     "V: runCommand argv[2] = 122110", "V: runCommand argv[3] = display",
                     "V: runCommand argv[4] = _display._tcp", "V: runCommand argv[5] = " + port,
                     "V: runCommand argv[6] = ", "V: sendMsg 200 serviceRegister started 0"}));
    mark();
    testing::internal::CaptureStdout();
    report("display", service("display (2)"));
    report("display", failure());
    EXPECT_EQ(callbacks(2).size(), 2U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "onRegisterResult display (2), _display._tcp., local.\nonRegisterResult , , \n");
    EXPECT_EQ(tagged("WFDmDns"), (Lines{"V: sendBroadcast 606 122110 \"display (2)\" 0",
                                        "V: sendBroadcast 605 122110 -65537 0"}));
}

TEST_F(WfdMdnsTest, CutsTexts) {
    Result result = service(std::string(64, 'n'));
    result.type = std::string(24, 't');
    result.domain = std::string(32, 'd');
    const std::string cut =
        std::string(63, 'n') + ", " + std::string(23, 't') + ", " + std::string(31, 'd') + ", , 0)";
    answer("displaysrc", {result});
    answer("_display._tcp", {result});
    EXPECT_EQ(mDnsRegisterWfdSource("any", 7236, noted<'r'>), 200);
    EXPECT_EQ(callbacks(1), Lines{"r(0, " + cut});
    mark();
    EXPECT_EQ(mDnsDiscoverWfd(WFD_R2_PRIMARY_SINK, noted<'d'>), 200);
    EXPECT_EQ(callbacks(1), Lines{"d(0, " + cut});
}

TEST_F(WfdMdnsTest, Discovers) {
    const struct {
        int types;
        std::vector<std::vector<const char*>> browses;  // type, id and service type
    } cases[] = {
        {WFD_R2_SOURCE, {{"1", "122101", "_displaysrc._tcp"}}},
        {WFD_R2_PRIMARY_SINK, {{"2", "122102", "_display._tcp"}}},
        {WFD_R2_SECONDARY_SINK, {{"4", "122104", "_displayssink._tcp"}}},
        {kBothSinks, {{"2", "122102", "_display._tcp"}, {"4", "122104", "_displayssink._tcp"}}},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(given.types);
        clear();
        mark();
        int sequence = 1;
        Lines expected{"1 start-service "}, log, stops, stopLog, found;
        for (const auto& browse : given.browses) {
            expected.push_back(
                format("%d discover %s %s ", ++sequence, browse.at(1), browse.at(2)));
            log.push_back(format("V: discover a type %s, result 200", browse.at(0)));
        }
        EXPECT_EQ(mDnsDiscoverWfd(given.types, noted<'a'>), 200);
        EXPECT_EQ(commands(), expected);
        for (const std::string& line : log) {
            EXPECT_EQ(journal().count("log", line.substr(3), marked()), 1U) << line;
        }
        EXPECT_EQ(journal().count("log", "discover types " + std::to_string(given.types), marked()),
                  1U);

        // A second one leaves the browses, which report to its callback.
        mark();
        EXPECT_EQ(mDnsDiscoverWfd(given.types, noted<'b'>), 501);
        sequence += 1 + static_cast<int>(given.browses.size());
        for (const auto& browse : given.browses) {
            report(browse.at(2), service(browse.at(2)));
            report(browse.at(2), service(browse.at(2), false));
            report(browse.at(2), failure());
            const std::string text = format("b(0, %s, _display._tcp., local., , 0)", browse.at(2));
            found.insert(found.end(), {text, text, "b(602)"});
            EXPECT_EQ(callbacks(found.size()), found);
            stops.push_back(format("%d stop-discover %s ", ++sequence, browse.at(1)));
            stopLog.push_back(format("stop discover a type %s, result 200", browse.at(0)));
        }
        for (int round = 0; round < 2; ++round) {
            mark();
            EXPECT_EQ(mDnsStopWfdDiscovery(), 200);  // the second time that of the first
            EXPECT_EQ(commands(), round == 0 ? stops : Lines{});
            for (const std::string& line : stopLog) {
                EXPECT_EQ(journal().count("log", line, marked()), round == 0 ? 1U : 0U) << line;
            }
        }
    }
}

TEST_F(WfdMdnsTest, StopsWhatSeveralDiscoveriesStarted) {
    EXPECT_EQ(mDnsDiscoverWfd(WFD_R2_SECONDARY_SINK, noted<'a'>), 200);
    EXPECT_EQ(mDnsDiscoverWfd(WFD_R2_SOURCE, noted<'a'>), 200);
    library().failNextCall(kDNSServiceErr_Unknown);
    EXPECT_EQ(mDnsDiscoverWfd(kBothSinks, noted<'a'>), 501);
    mark();
    // The browse that was refused has no id to stop.
    EXPECT_EQ(mDnsStopWfdDiscovery(), 200);
    EXPECT_EQ(commands(), (Lines{"8 stop-discover 122101 ", "9 stop-discover 122102 ",
                                 "10 stop-discover 122104 "}));
    EXPECT_EQ(journal().count("log", "stop discover a type 2, result 501", marked()), 1U);
}

TEST_F(WfdMdnsTest, ResolvesToEachAddress) {
    EXPECT_EQ(mDnsUnregisterWfd(), -1);
    MDnsWfdServiceInfo info = found("A sink");
    mark();
    EXPECT_EQ(mDnsResolveWfd(&info, noted<'a'>), 200);
    info = found("nothing that is looked at again");
    EXPECT_EQ(commands(), Lines{"1 resolve 122111 A sink _display._tcp. local. "});
    report("A sink", resolved("sink.local.", 40001));
    report("sink.local.", address("fe80::1234:5678:9abc:def0"));
    report("sink.local.", address("192.168.49.2"));
    report("sink.local.", failure());
    report("sink.local.", address("192.168.49.3"));
    EXPECT_EQ(callbacks(4),
              (Lines{"a(0, A sink, _display._tcp., local., fe80::1234:5678:9abc:def0, 40001)",
                     "a(0, A sink, _display._tcp., local., 192.168.49.2, 40001)", "a(611)",
                     "a(0, A sink, _display._tcp., local., 192.168.49.3, 40001)"}));
    EXPECT_EQ(commands(), (Lines{"1 resolve 122111 A sink _display._tcp. local. ",
                                 "2 stop-resolve 122111 ", "3 getaddrinfo 122112 sink.local. "}));

    // The address query stays with the object: it goes on for the next service, whose own is
    // refused.
    EXPECT_TRUE(waitForgotten());
    mark();
    EXPECT_EQ(resolve("Another", noted<'b'>), 200);
    report("Another", resolved("another.local.", 40002));
    EXPECT_TRUE(replied("501 RequestId already in use during getAddrInfo call 0"));
    EXPECT_EQ(callbacks(0), Lines{});
    report("sink.local.", address("192.168.49.2"));
    EXPECT_EQ(callbacks(1), Lines{"b(0, Another, _display._tcp., local., 192.168.49.2, 40002)"});

    // After a failed resolution nobody is told of its addresses.
    EXPECT_TRUE(waitForgotten());
    mark();
    EXPECT_EQ(resolve("A third", noted<'c'>), 200);
    report("A third", failure());
    EXPECT_EQ(callbacks(1), Lines{"c(607)"});
    EXPECT_EQ(commands(),
              (Lines{"7 resolve 122111 A third _display._tcp. local. ", "8 stop-resolve 122111 "}));
    report("sink.local.", address("192.168.49.2"));
    EXPECT_TRUE(journal().waitFor("log", "getAddrInfo succeeded for 122112", marked()));
    EXPECT_EQ(callbacks(0), Lines{"c(607)"});
    EXPECT_EQ(tagged("WFDmDns").back(),
              "E: miracastSigma/mDNS/src/WFDmDns: onGetAddrResult: assertion "
              "\"mResolveCallback\" failed");
}

TEST_F(WfdMdnsTest, ResolvesTheLatest) {
    EXPECT_EQ(mDnsUnregisterWfd(), -1);
    EXPECT_EQ(resolve("first", noted<'a'>), 200);
    EXPECT_EQ(resolve("second", noted<'b'>), 501);
    answer("sink.local.", {address("192.168.49.2")});
    report("first", resolved("sink.local.", 40001));
    EXPECT_EQ(callbacks(1), Lines{"b(0, second, _display._tcp., local., 192.168.49.2, 40001)"});
}

TEST_F(WfdMdnsTest, StopsTheResolutionBeforeItsCallback) {
    EXPECT_EQ(mDnsUnregisterWfd(), -1);
    mark();
    EXPECT_EQ(resolve("A sink",
                      [](int result, const MDnsWfdServiceInfo* info) {
                          noteResult('a', result, info);
                          noteResult('n', static_cast<int>(library().liveCount()), nullptr);
                      }),
              200);
    report("A sink", failure());
    EXPECT_EQ(callbacks(2), (Lines{"a(607)", "n(0)"}));
}

TEST_F(WfdMdnsTest, EndsWhatItBegan) {
    const auto enroll = [] {
        EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, noted<'a'>), 200);
    };
    const auto browse = [] { EXPECT_EQ(mDnsDiscoverWfd(kBothSinks, noted<'a'>), 200); };
    const auto stopBrowse = [] { EXPECT_EQ(mDnsStopWfdDiscovery(), 200); };
    const auto unregister = [] { mDnsUnregisterWfd(); };
    const auto begin = [] { EXPECT_EQ(resolve("A sink", noted<'a'>), 200); };
    const auto fail = [this] {
        report("A sink", failure());
        EXPECT_EQ(journal().waitFor("log", "resolve failure for", marked()).has_value(), true);
    };
    const auto query = [this] {
        report("A sink", resolved("sink.local.", 40001));
        EXPECT_TRUE(journal().waitFor("log", "resolve succeeded for", marked()));
    };
    const struct {
        const char* name;
        std::vector<std::function<void()>> steps;
        Lines commands;
    } cases[] = {
        {"nothing", {unregister}, {"1 stop-service "}},
        {"registered", {enroll}, {"3 stop-register 122110 ", "4 stop-service "}},
        {"unregistered", {enroll, unregister}, {"4 stop-service "}},
        {"browsing",
         {browse},
         {"4 stop-discover 122102 ", "5 stop-discover 122104 ", "6 stop-service "}},
        {"browsed", {browse, stopBrowse}, {"6 stop-service "}},
        {"resolving", {unregister, begin}, {"2 stop-resolve 122111 ", "3 stop-service "}},
        {"not resolved", {unregister, begin, fail}, {"3 stop-service "}},
        {"resolved",
         {unregister, begin, query},
         {"4 stop-resolve 122111 ", "5 stop-getaddrinfo 122112 ", "6 stop-service "}},
        {"all",
         {enroll, browse, begin, query},
         {"9 stop-register 122110 ", "10 stop-discover 122102 ", "11 stop-discover 122104 ",
          "12 stop-resolve 122111 ", "13 stop-getaddrinfo 122112 ", "14 stop-service "}},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(given.name);
        mark();
        for (const auto& step : given.steps) step();
        mark();
        clear();
        EXPECT_EQ(commands(), given.commands);
        EXPECT_EQ(library().liveCount(), 0U);
        mark();
        clear();
        EXPECT_EQ(tagged("WFDmDns"), Lines{});
    }
    // Without anything the daemon goes too.
    mDnsUnregisterWfd();
    mark();
    clear();
    EXPECT_EQ(calls("property"), Lines{"ctl.stop = mdnsd"});
    EXPECT_EQ(tagged("WFDmDns").back(), "V: stopService result 200");
}

TEST_F(WfdMdnsTest, RefusesWhatIsNotAllowed) {
    const std::string sinkTypes =
        "registerSink: assertion \"deviceSinkType == WFD_R2_PRIMARY_SINK || deviceSinkType == "
        "WFD_R2_SECONDARY_SINK\"";
    const std::string types =
        "discover: assertion \"deviceTypes == WFD_R2_SOURCE || deviceTypes == WFD_R2_PRIMARY_SINK "
        "|| deviceTypes == WFD_R2_SECONDARY_SINK || deviceTypes == (WFD_R2_PRIMARY_SINK | "
        "WFD_R2_SECONDARY_SINK)\"";
    const MDnsWfdServiceInfo info = found("A sink");
    const auto asSource = [] { mDnsRegisterWfdSource("", 7236, noted<'a'>); };
    const auto asSink = [] { mDnsRegisterWfdSink(WFD_R2_SECONDARY_SINK, noted<'a'>); };
    const auto asAny = [] { mDnsUnregisterWfd(); };
    const auto enroll = [](int type) { return mDnsRegisterWfdSink(type, noted<'b'>); };
    const auto browse = [](int set) { return mDnsDiscoverWfd(set, noted<'b'>); };
    const struct {
        std::function<void()> before;
        std::function<int()> call;
        std::string log;
    } cases[] = {
        {asAny, [&] { return enroll(0); }, sinkTypes},
        {asAny, [&] { return enroll(WFD_R2_SOURCE); }, sinkTypes},
        {asAny, [&] { return enroll(kBothSinks); }, sinkTypes},
        {asAny, [] { return mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, nullptr); },
         "registerSink: assertion \"callback != nullptr\""},
        {asAny, [] { return mDnsRegisterWfdSource("", 7236, nullptr); },
         "registerSource: assertion \"callback != nullptr\""},
        {asAny, [&] { return browse(0); }, types},
        {asAny, [&] { return browse(3); }, types},
        {asAny, [&] { return browse(5); }, types},
        {asAny, [&] { return browse(7); }, types},
        {asAny, [&] { return browse(-1); }, types},
        {asAny, [] { return mDnsDiscoverWfd(WFD_R2_SOURCE, nullptr); },
         "discover: assertion \"callback != nullptr\""},
        {asAny, mDnsStopWfdDiscovery, "stopDiscovery: assertion \"mDiscoverCallback != nullptr\""},
        {asAny, [&] { return mDnsResolveWfd(&info, nullptr); },
         "resolve: assertion \"callback != nullptr\""},
        {asAny, [] { return setTriggerCallback(nullptr); },
         "setTriggerCallback: assertion \"callback\""},
        {asSource, [] { return setTriggerCallback(triggered<'t'>); },
         "setTriggerCallback: assertion \"mMyDeviceType == WFD_R2_PRIMARY_SINK || mMyDeviceType == "
         "WFD_R2_SECONDARY_SINK || mMyDeviceType == 0\""},
        {asSink, [&] { return triggerSinkConnect(&info, "", 7236); },
         "triggerSinkConnect: assertion \"mMyDeviceType == WFD_R2_SOURCE || mMyDeviceType == 0\""},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(given.log);
        clear();
        given.before();
        mark();
        EXPECT_EQ(given.call(), -1);
        EXPECT_EQ(commands(), Lines{});
        EXPECT_EQ(tagged("WFDmDns").back(),
                  "E: miracastSigma/mDNS/src/WFDmDns: " + given.log + " failed");
        EXPECT_EQ(tagged("WFDTriggerTcp"), Lines{});
    }
    clear();
    mark();
    EXPECT_EQ(mDnsStopWfdDiscovery(), -1);
    EXPECT_EQ(mDnsResolveWfd(&info, noted<'a'>), -1);
    EXPECT_EQ(triggerSinkConnect(&info, "", 7236), -1);
    clear();
    EXPECT_EQ(tagged("WFDmDns"), Lines{});  // there is no object, and none was made
    asAny();
    EXPECT_EQ(mDnsResolveWfd(nullptr, noted<'a'>), -1);
    EXPECT_EQ(triggerSinkConnect(nullptr, "", 7236), -1);
}

TEST_F(WfdMdnsTest, KeepsItsTriggerServer) {
    EXPECT_EQ(setTriggerCallback(triggered<'a'>), 0);
    const int port = triggerPort();
    answer("display", {service("display")});
    EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, noted<'r'>), 200);
    EXPECT_EQ(commands().back(), format("2 register 122110 display _display._tcp %d  ", port));
    EXPECT_EQ(callbacks(1).size(), 1U);
    mark();
    sendCommand(port, kAsk7236);
    EXPECT_EQ(setTriggerCallback(triggered<'b'>), 0);
    sendCommand(port, kAsk7236);
    clear();
    sendCommand(port, kAsk7236);
    EXPECT_EQ(callbacks(0),
              (Lines{"a(127.0.0.1, 7236)", "b(127.0.0.1, 7236)", "b(127.0.0.1, 7236)"}));

    // The next object has one of its own, which nobody has given a callback.
    mark();
    EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_SECONDARY_SINK, noted<'r'>), 200);
    EXPECT_NE(triggerPort(), port);
    sendCommand(triggerPort(), kAsk7236);
    EXPECT_EQ(callbacks(0), Lines{});
}

TEST_F(WfdMdnsTest, GoesOnWithoutATriggerServer) {
    mDnsUnregisterWfd();
    const std::string log = "E: no trigger server: Resource temporarily unavailable";
    {
        const ScopedFault fault(Fault::ThreadCreation);
        EXPECT_EQ(setTriggerCallback(triggered<'a'>), -1);
        EXPECT_EQ(tagged("WFDmDns").back(), log);
        mark();
        EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, noted<'a'>), -1);
        EXPECT_EQ(tagged("WFDmDns").back(), log);
        EXPECT_EQ(calls("dns-sd"), Lines{});
        EXPECT_EQ(mDnsUnregisterWfd(), -1);
    }
    EXPECT_EQ(setTriggerCallback(triggered<'a'>), 0);
    EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, noted<'a'>), 200);
}

TEST_F(WfdMdnsTest, TriggersTheSinkOfARecord) {
    Sink sink("127.0.0.9");
    MDnsWfdServiceInfo info = found("A sink");
    snprintf(info.ipAddress, sizeof info.ipAddress, "127.0.0.9");
    info.port = sink.port();
    const auto asSource = [] { mDnsRegisterWfdSource("", 7236, noted<'a'>); };
    const auto asAny = [] { mDnsUnregisterWfd(); };
    for (const std::function<void()>& as : std::vector<std::function<void()>>{asAny, asSource}) {
        clear();
        as();
        onSleep(200, 2, [&] { sink.listen(); });
        EXPECT_EQ(triggerSinkConnect(&info, nullptr, 7236), 0);
        EXPECT_EQ(sink.received(), "00021c44");
    }
    // The sink cannot be reached: only the log tells.
    info.port = Sink("127.0.0.9").port();
    mark();
    EXPECT_EQ(triggerSinkConnect(&info, "192.168.49.1", 7236), 0);
    EXPECT_EQ(slept(200), 51U);
    EXPECT_FALSE(sink.reached());
}

}  // namespace
