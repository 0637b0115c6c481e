// The process's discovery object: what it asks of DNS-SD, and what becomes of the results.
#include "DiscoveryTest.h"
#include "WFDmDns.h"
#include "host/text_format.h"
#include "wfd_services.h"

using hostplatform::format;

namespace {

constexpr int kBothSinks = WFD_R2_PRIMARY_SINK | WFD_R2_SECONDARY_SINK;

MDnsWfdServiceInfo record(const char* name) {
    MDnsWfdServiceInfo info{};
    snprintf(info.serviceName, sizeof info.serviceName, "%s", name);
    snprintf(info.regType, sizeof info.regType, "_display._tcp.");
    snprintf(info.domain, sizeof info.domain, "local.");
    return info;
}

int resolve(const char* name, MDnsRegisterCallback callback) {
    const MDnsWfdServiceInfo info = record(name);
    return mDnsResolveWfd(&info, callback);
}

TEST_F(DiscoveryTest, RegistersOneDeviceOfEachType) {
    for (const WfdServiceConsts& given : {kWfdSource, kWfdPrimarySink, kWfdSecondarySink}) {
        SCOPED_TRACE(given.name);
        mDnsClearInstances();
        property_set("ctl.stop", "mdnsd");
        mark();
        const bool isSource = given.type == WFD_R2_SOURCE;
        const auto enroll = [&](MDnsRegisterCallback callback) {
            return isSource ? mDnsRegisterWfdSource(nullptr, 7237, callback)
                            : mDnsRegisterWfdSink(given.type, callback);
        };
        EXPECT_EQ(enroll(first), 200);
        EXPECT_EQ(calls("property"), Lines{"ctl.start = \"mdnsd\""});
        EXPECT_EQ(calls("dns-sd"),
                  Lines{format("register(0, 0, %s, %s, (null), (null), %d, )", given.name,
                               given.regType, isSource ? 7237 : triggerPort())});
        // A second one has the callback, and the first one's registration.
        EXPECT_EQ(enroll(second), 501);
        report(given.name, service("the name"));
        report(given.name, failure());
        EXPECT_EQ(callbacks(), (Lines{"2: 0 the name _display._tcp. local.  0", "2: 605"}));
        EXPECT_EQ(mDnsUnregisterWfd(), 200);
        EXPECT_EQ(mDnsUnregisterWfd(), -1);
        EXPECT_EQ(enroll(first), 200);
    }
    for (const int type : {0, 3, 5, 8, -1}) EXPECT_STREQ(wfdServiceOf(type).regType, "");
}

TEST_F(DiscoveryTest, BrowsesForTheTypesAskedFor) {
    const std::pair<int, Lines> cases[] = {
        {WFD_R2_SOURCE, {"_displaysrc._tcp"}},
        {WFD_R2_SECONDARY_SINK, {"_displayssink._tcp"}},
        {kBothSinks, {"_display._tcp", "_displayssink._tcp"}},
    };
    for (const auto& [types, regTypes] : cases) {
        SCOPED_TRACE(types);
        mark();
        Lines steps, reported;
        EXPECT_EQ(mDnsDiscoverWfd(types, first), 200);
        for (const std::string& type : regTypes) {
            steps.push_back("browse(0, 0, " + type + ", (null))");
        }
        // A second one leaves the browses, which report to its callback.
        EXPECT_EQ(mDnsDiscoverWfd(types, second), 501);
        for (const std::string& type : regTypes) {
            report(type, service(type));
            report(type, service("lost", 0));
            report(type, failure());
            reported.insert(reported.end(), {"2: 0 " + type + " _display._tcp. local.  0",
                                             "2: 0 lost _display._tcp. local.  0", "2: 602"});
            steps.push_back("DNSServiceRefDeallocate " + type);
        }
        EXPECT_EQ(callbacks(), reported);
        EXPECT_EQ(mDnsStopWfdDiscovery(), 200);
        EXPECT_EQ(mDnsStopWfdDiscovery(), 200);  // that of the first
        EXPECT_EQ(calls("dns-sd"), steps);
        mDnsClearInstances();
    }
    // Everything that several discoveries have started is stopped, but for what was refused.
    EXPECT_EQ(mDnsDiscoverWfd(WFD_R2_SECONDARY_SINK, first), 200);
    EXPECT_EQ(mDnsDiscoverWfd(WFD_R2_SOURCE, first), 200);
    library().failNextCall(kDNSServiceErr_Unknown);
    EXPECT_EQ(mDnsDiscoverWfd(kBothSinks, first), 501);
    mark();
    EXPECT_EQ(mDnsStopWfdDiscovery(), 200);
    EXPECT_EQ(calls("dns-sd"), (Lines{"DNSServiceRefDeallocate _displaysrc._tcp",
                                      "DNSServiceRefDeallocate _displayssink._tcp"}));
}

TEST_F(DiscoveryTest, ResolvesToEachAddress) {
    EXPECT_EQ(mDnsUnregisterWfd(), -1);
    MDnsWfdServiceInfo info = record("A sink");
    EXPECT_EQ(mDnsResolveWfd(&info, first), 200);
    info = record("not looked at again");
    EXPECT_EQ(resolve("Another", second), 501);  // which is the one that is reported
    report("A sink", resolved(40001));
    report("peer.local.", address("fe80::1234:5678:9abc:def0"));
    report("peer.local.", failure());
    report("peer.local.", address("192.168.49.3"));
    // The address query goes on for the next service, whose own is refused.
    EXPECT_EQ(resolve("A third", first), 200);
    report("A third", resolved(40002));
    report("peer.local.", address("192.168.49.4"));
    EXPECT_EQ(callbacks(),
              (Lines{"2: 0 Another _display._tcp. local. fe80::1234:5678:9abc:def0 40001", "2: 611",
                     "2: 0 Another _display._tcp. local. 192.168.49.3 40001",
                     "1: 0 A third _display._tcp. local. 192.168.49.4 40002"}));
    EXPECT_EQ(calls("dns-sd"),
              (Lines{"resolve(0, 0, A sink, _display._tcp., local.)",
                     "DNSServiceRefDeallocate A sink", "getaddrinfo(0, 0, 0, peer.local.)",
                     "resolve(0, 0, A third, _display._tcp., local.)",
                     "DNSServiceRefDeallocate A third"}));
    // A failed resolution has ended when it is reported; no addresses are reported after it.
    mark();
    const auto failed = [](int result, const MDnsWfdServiceInfo* none) {
        noteRecord(std::to_string(library().liveCount()).c_str(), result, none);
    };
    EXPECT_EQ(resolve("A fourth", failed), 200);
    report("A fourth", failure());
    report("peer.local.", address("192.168.49.5"));
    EXPECT_EQ(callbacks(), Lines{"1: 607"});
}

// In the callback of an address another resolution begins; so does one in that of a failure.
TEST_F(DiscoveryTest, ResolvesAgainInACallback) {
    const MDnsRegisterCallback callback = [](int result, const MDnsWfdServiceInfo* info) {
        noteRecord("again", result, info);
        // Refused while the earlier resolution is removed, but its record is taken.
        resolve("Another", second);
    };
    EXPECT_EQ(mDnsUnregisterWfd(), -1);
    EXPECT_EQ(resolve("A sink", callback), 200);
    report("A sink", resolved(40001));
    report("peer.local.", address("192.168.49.2"));
    report("peer.local.", address("192.168.49.3"));
    mDnsClearInstances();
    EXPECT_EQ(mDnsUnregisterWfd(), -1);
    EXPECT_EQ(resolve("A sink", callback), 200);
    report("A sink", failure());
    EXPECT_EQ(resolve("A third", second), 200);
    report("A third", resolved(1));
    report("peer.local.", address("192.168.49.2"));
    EXPECT_EQ(callbacks(), (Lines{"again: 0 A sink _display._tcp. local. 192.168.49.2 40001",
                                  "2: 0 Another _display._tcp. local. 192.168.49.3 0", "again: 607",
                                  "2: 0 A third _display._tcp. local. 192.168.49.2 1"}));
}

TEST_F(DiscoveryTest, EndsWhatItBegan) {
    EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, first), 200);
    EXPECT_EQ(mDnsDiscoverWfd(kBothSinks, first), 200);
    EXPECT_EQ(resolve("A sink", first), 200);
    report("A sink", resolved(40001));
    EXPECT_EQ(resolve("Another", first), 200);
    mark();
    mDnsClearInstances();
    EXPECT_EQ(calls("dns-sd"),
              (Lines{"DNSServiceRefDeallocate display", "DNSServiceRefDeallocate _display._tcp",
                     "DNSServiceRefDeallocate _displayssink._tcp",
                     "DNSServiceRefDeallocate Another", "DNSServiceRefDeallocate peer.local."}));
    // Without a request the daemon is stopped.
    EXPECT_EQ(mDnsUnregisterWfd(), -1);
    mark();
    for (int round = 0; round < 2; ++round) mDnsClearInstances();
    EXPECT_EQ(calls("property"), Lines{"ctl.stop = \"mdnsd\""});
}

TEST_F(DiscoveryTest, RefusesWhatIsNotAllowed) {
    const MDnsWfdServiceInfo info = record("A sink");
    const auto refused = [this](const std::vector<int>& results) {
        EXPECT_EQ(results, std::vector<int>(results.size(), -1));
        EXPECT_EQ(calls("dns-sd"), Lines{});
        mDnsClearInstances();
    };
    refused({mDnsStopWfdDiscovery(), mDnsResolveWfd(&info, second),
             triggerSinkConnect(&info, "", 7236)});
    refused({mDnsUnregisterWfd(), mDnsRegisterWfdSink(WFD_R2_SOURCE, second),
             mDnsRegisterWfdSink(kBothSinks, second),
             mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, nullptr),
             mDnsRegisterWfdSource("", 7236, nullptr), mDnsDiscoverWfd(0, second),
             mDnsDiscoverWfd(WFD_R2_SOURCE | WFD_R2_PRIMARY_SINK, second),
             mDnsDiscoverWfd(WFD_R2_SOURCE, nullptr), mDnsStopWfdDiscovery(),
             mDnsResolveWfd(&info, nullptr), mDnsResolveWfd(nullptr, second),
             setTriggerCallback(nullptr), triggerSinkConnect(nullptr, "", 7236)});
    EXPECT_EQ(mDnsRegisterWfdSource("", 7236, first), 200);
    mark();
    refused({setTriggerCallback(triggered)});
    EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_SECONDARY_SINK, first), 200);
    mark();
    refused({triggerSinkConnect(&info, "", 7236)});
}

TEST_F(DiscoveryTest, ItsTriggerServerStays) {
    EXPECT_EQ(setTriggerCallback(triggered), 0);
    EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, first), 200);
    const int port = triggerPort();
    sendTrigger(port);
    EXPECT_EQ(setTriggerCallback([](const char*, int other) { triggered("other", other); }), 0);
    sendTrigger(port);
    mDnsClearInstances();
    sendTrigger(port);
    // The next object makes one of its own, without a callback.
    EXPECT_EQ(mDnsRegisterWfdSink(WFD_R2_SECONDARY_SINK, first), 200);
    EXPECT_NE(triggerPort(), port);
    sendTrigger(triggerPort());
    EXPECT_EQ(callbacks(), (Lines{"127.0.0.1 7236", "other 7236", "other 7236"}));
}

// Texts are cut to the record's sizes.
TEST_F(DiscoveryTest, ReportsWholeRecords) {
    Result result = service(std::string(64, 'n'));
    result.type = std::string(24, 't');
    result.domain = std::string(32, 'd');
    WFDmDns object;
    EXPECT_EQ(object.runCommand({"1", "start-service"}), 0);
    EXPECT_EQ(std::pair(object.startService(), object.stopService()), std::pair(0, 0));
    EXPECT_EQ(object.discover(WFD_R2_SOURCE, first), 200);
    report("_displaysrc._tcp", result);
    EXPECT_EQ(callbacks(), Lines{"1: 0 " + std::string(63, 'n') + ' ' + std::string(23, 't') + ' ' +
                                 std::string(31, 'd') + "  0"});
}

}  // namespace
