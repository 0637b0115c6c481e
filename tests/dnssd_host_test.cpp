// What the simulated device adds to the DNS-SD client library, and its mDNS service, on a real
// daemon.
#include <arpa/inet.h>
#include <dns_sd.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Journal.h"
#include "Properties.h"
#include "RealDaemon.h"
#include "RealDaemonNetwork.h"
#include "cutils/properties.h"

namespace {

using hostplatform::Journal;
using Texts = std::vector<std::string>;

// A request and what it has reported, one text each.
struct Request {
    ~Request() { deallocate(); }
    void deallocate() {
        if (reference != nullptr) DNSServiceRefDeallocate(std::exchange(reference, nullptr));
    }
    void report(const std::string& text) {
        reports.push_back(text);
        if (onReport) onReport();
    }

    DNSServiceRef reference = nullptr;
    Texts reports;
    std::function<void()> onReport;
};

void onAddress(DNSServiceRef, DNSServiceFlags flags, uint32_t interfaceIndex,
               DNSServiceErrorType error, const char* hostName, const sockaddr* address, uint32_t,
               void* context) {
    auto& request = *static_cast<Request*>(context);
    if (error != 0) return request.report("error " + std::to_string(error));
    char text[INET6_ADDRSTRLEN] = "";
    const bool v4 = address->sa_family == AF_INET;
    inet_ntop(
        address->sa_family,
        v4 ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(address)->sin_addr)
           : &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr,
        text, sizeof text);
    EXPECT_NE(interfaceIndex, 0U);
    const char* const sign = (flags & kDNSServiceFlagsAdd) != 0 ? "+ " : "- ";
    request.report(sign + std::string(hostName) + " " + text);
}

void onHostName(DNSServiceRef, DNSServiceFlags, DNSServiceErrorType error, const char* hostName,
                void* context) {
    static_cast<Request*>(context)->report(error != 0 ? "error " + std::to_string(error)
                                                      : hostName);
}

DNSServiceErrorType lookUp(Request& request, const char* hostName,
                           DNSServiceProtocol protocol = 0) {
    return DNSServiceGetAddrInfo(&request.reference, 0, 0, protocol, hostName, onAddress, &request);
}

DNSServiceErrorType setHostName(Request& request, const char* hostName) {
    return DNSSetHostname(&request.reference, 0, hostName, onHostName, &request);
}

// Processes the requests' results until `done`; false when that did not come true in time.
bool processUntil(const std::vector<Request*>& requests, const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done()) {
        std::vector<pollfd> descriptors;
        std::vector<Request*> polled;
        for (Request* const request : requests) {
            if (request->reference == nullptr) continue;
            descriptors.push_back({DNSServiceRefSockFD(request->reference), POLLIN, 0});
            polled.push_back(request);
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 ||
            poll(descriptors.data(), descriptors.size(), static_cast<int>(left.count())) <= 0) {
            return false;
        }
        for (size_t i = 0; i < polled.size(); ++i) {
            if (descriptors[i].revents != 0 && polled[i]->reference != nullptr) {
                DNSServiceProcessResult(polled[i]->reference);
            }
        }
    }
    return true;
}

bool processUntilReports(Request& request, size_t count) {
    return processUntil({&request}, [&] { return request.reports.size() >= count; });
}

Texts sorted(Texts texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

using AddressTest = RealDaemonTest;
using HostNameTest = RealDaemonTest;
using MdnsServiceTest = RealDaemonTest;

TEST_F(AddressTest, FindsTheFamiliesAskedFor) {
    const std::string v4 = std::string("+ device.local. ") + RealDaemon::ipv4(Host::Here);
    const std::string v6 = std::string("+ device.local. ") + RealDaemon::ipv6(Host::Here);
    struct {
        DNSServiceProtocol protocol;
        const char* hostName;
        Texts reports;
    } const cases[] = {
        {kDNSServiceProtocol_IPv4, "device.local", {v4}},
        {kDNSServiceProtocol_IPv6, "device.local.", {v6}},
        {kDNSServiceProtocol_IPv4 | kDNSServiceProtocol_IPv6, "device.local", {v4, v6}},
        {0, "device.local", {v4, v6}},
    };
    testing::internal::CaptureStderr();
    for (const auto& c : cases) {
        Request request;
        ASSERT_EQ(lookUp(request, c.hostName, c.protocol), 0);
        EXPECT_TRUE(processUntilReports(request, c.reports.size()));
        EXPECT_EQ(sorted(request.reports), c.reports) << c.hostName << " " << c.protocol;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr().find("*** WARNING ***"), std::string::npos);
}

TEST_F(AddressTest, ReportsWhoComesAndGoesOnce) {
    Request request;
    ASSERT_EQ(lookUp(request, "visitor.local"), 0);
    RealDaemon visitor(Host::Peer, "visitor");
    // Its addresses reach us over both protocols, and from each as a record of its own.
    ASSERT_TRUE(visitor.start());
    EXPECT_TRUE(processUntilReports(request, 2));
    visitor.stop();
    EXPECT_TRUE(processUntilReports(request, 4));
    const Texts v4v6 = {std::string(" visitor.local. ") + RealDaemon::ipv4(Host::Peer),
                        std::string(" visitor.local. ") + RealDaemon::ipv6(Host::Peer)};
    EXPECT_EQ(sorted(request.reports),
              (Texts{"+" + v4v6[0], "+" + v4v6[1], "-" + v4v6[0], "-" + v4v6[1]}));
    EXPECT_EQ(request.reports[1][0], '+') << "gone before all was there";
}

TEST_F(AddressTest, RefusesWhatCannotBeAsked) {
    Request request;
    DNSServiceRef* const reference = &request.reference;
    const struct {
        const char* what;
        DNSServiceErrorType result;
    } cases[] = {
        {"no reference", DNSServiceGetAddrInfo(nullptr, 0, 0, 0, "a.local", onAddress, nullptr)},
        {"no name", DNSServiceGetAddrInfo(reference, 0, 0, 0, nullptr, onAddress, nullptr)},
        {"empty name", DNSServiceGetAddrInfo(reference, 0, 0, 0, "", onAddress, nullptr)},
        {"no callback", DNSServiceGetAddrInfo(reference, 0, 0, 0, "a.local", nullptr, nullptr)},
        {"protocol", DNSServiceGetAddrInfo(reference, 0, 0, 4, "a.local", onAddress, nullptr)},
        {"no name to set", DNSSetHostname(reference, 0, nullptr, onHostName, nullptr)},
        {"no callback to set", DNSSetHostname(reference, 0, "a", nullptr, nullptr)},
        {"two labels", DNSSetHostname(reference, 0, "a.b", onHostName, nullptr)},
        {"empty label", DNSSetHostname(reference, 0, "", onHostName, nullptr)},
        {"long label",
         DNSSetHostname(reference, 0, std::string(64, 'a').c_str(), onHostName, nullptr)},
    };
    for (const auto& c : cases) EXPECT_EQ(c.result, kDNSServiceErr_BadParam) << c.what;
    EXPECT_EQ(DNSSetHostname(reference, 1, "a", onHostName, nullptr), kDNSServiceErr_BadFlags);
    EXPECT_EQ(request.reference, nullptr);
}

// One ends itself and its neighbour in its first result: neither is called again, and both ends are
// complete (leaks and uses after the end show in the sanitizers' builds).
TEST_F(AddressTest, EndsInItsOwnCallback) {
    Request first;
    Request neighbour;
    ASSERT_EQ(lookUp(first, "device.local"), 0);
    ASSERT_EQ(lookUp(neighbour, "device.local"), 0);
    first.onReport = [&] {
        first.deallocate();
        neighbour.deallocate();
    };
    EXPECT_TRUE(processUntilReports(first, 1));
    EXPECT_EQ(first.reports.size(), 1U);
    EXPECT_EQ(neighbour.reports.size(), 0U);

    Request name;
    name.onReport = [&] { name.deallocate(); };
    ASSERT_EQ(setHostName(name, "device"), 0);
    EXPECT_TRUE(processUntilReports(name, 1));
    EXPECT_EQ(name.reports, Texts{"device"});
}

TEST_F(AddressTest, MayBeMadeProcessedAndEndedOnDifferentThreads) {
    Request request;
    Request name;
    std::thread([&] {
        EXPECT_EQ(lookUp(request, "device.local"), 0);
        EXPECT_EQ(setHostName(name, "elsewhere"), 0);
    }).join();
    EXPECT_TRUE(processUntil({&request, &name},
                             [&] { return request.reports.size() >= 2 && !name.reports.empty(); }));
    std::thread([&] {
        request.deallocate();
        name.deallocate();
    }).join();
    EXPECT_EQ(name.reports, Texts{"elsewhere"});
}

TEST_F(HostNameTest, ChangesTheNameOnTheNetwork) {
    RealDaemon observer(Host::Peer, "observer");
    ASSERT_TRUE(observer.start());
    Request old;
    Request renamed;
    ASSERT_EQ(lookUp(old, "device.local", kDNSServiceProtocol_IPv4), 0);
    ASSERT_EQ(lookUp(renamed, "newname.local", kDNSServiceProtocol_IPv4), 0);
    ASSERT_TRUE(processUntilReports(old, 1));

    Request change;
    ASSERT_EQ(setHostName(change, "newname"), 0);
    EXPECT_TRUE(processUntil({&old, &renamed, &change}, [&] {
        return !change.reports.empty() && !renamed.reports.empty() && old.reports.size() >= 2;
    }));
    EXPECT_EQ(change.reports, Texts{"newname"});
    EXPECT_EQ(renamed.reports,
              Texts{std::string("+ newname.local. ") + RealDaemon::ipv4(Host::Here)});
    EXPECT_EQ(old.reports.back(), std::string("- device.local. ") + RealDaemon::ipv4(Host::Here));

    Request same;
    ASSERT_EQ(setHostName(same, "newname"), 0);
    EXPECT_TRUE(processUntilReports(same, 1));
    EXPECT_EQ(same.reports, Texts{"newname"});

    Request taken;
    ASSERT_EQ(setHostName(taken, "observer"), 0);
    EXPECT_TRUE(processUntilReports(taken, 1));
    EXPECT_EQ(taken.reports, Texts{"observer-2"});

    Request abandoned;  // ended while the daemon still probes for the name
    ASSERT_EQ(setHostName(abandoned, "abandoned"), 0);
}

TEST_F(AddressTest, IsToldOnceWhenTheDaemonGoes) {
    std::vector<std::unique_ptr<Request>> requests;
    const auto add = [&requests]() -> Request& {
        return *requests.emplace_back(std::make_unique<Request>());
    };
    const auto onQuery = [](DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType error,
                            const char*, uint16_t, uint16_t, uint16_t, const void*, uint32_t,
                            void* context) {
        if (error != 0) static_cast<Request*>(context)->report("error " + std::to_string(error));
    };
    const auto onResolve = [](DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType error,
                              const char*, const char*, uint16_t, uint16_t, const unsigned char*,
                              void* context) {
        if (error != 0) static_cast<Request*>(context)->report("error " + std::to_string(error));
    };
    const auto onBrowse = [](DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType error,
                             const char*, const char*, const char*, void* context) {
        if (error != 0) static_cast<Request*>(context)->report("error " + std::to_string(error));
    };
    // Several of each, made in memory that earlier ones have used.
    constexpr int kRounds = 5;
    for (int round = 0; round < kRounds; ++round) {
        for (int used = 0; used < 4; ++used) {
            Request earlier;
            ASSERT_EQ(lookUp(earlier, "device.local"), 0);
        }
        ASSERT_EQ(lookUp(add(), "nobody.local"), 0);
        Request& query = add();
        ASSERT_EQ(DNSServiceQueryRecord(&query.reference, 0, 0, "nobody.local", kDNSServiceType_A,
                                        kDNSServiceClass_IN, onQuery, &query),
                  0);
        Request& resolve = add();
        ASSERT_EQ(DNSServiceResolve(&resolve.reference, 0, 0, "nobody", "_display._tcp", "local",
                                    onResolve, &resolve),
                  0);
        Request& browse = add();
        ASSERT_EQ(
            DNSServiceBrowse(&browse.reference, 0, 0, "_display._tcp", nullptr, onBrowse, &browse),
            0);
    }
    Request& name = add();
    ASSERT_EQ(setHostName(name, "unfinished"), 0);

    daemon().kill();
    std::vector<Request*> all;
    for (const auto& request : requests) all.push_back(request.get());
    EXPECT_TRUE(processUntil(all, [&all] {
        return std::all_of(all.begin(), all.end(),
                           [](const Request* request) { return !request->reports.empty(); });
    }));
    for (const auto& request : requests) {
        ASSERT_EQ(request->reports.size(), 1U);
        EXPECT_EQ(request->reports[0].substr(0, 6), "error ");
    }
    EXPECT_EQ(name.reports[0], "error " + std::to_string(kDNSServiceErr_ServiceNotRunning));

    Request refused;
    EXPECT_NE(lookUp(refused, "device.local"), 0);
    EXPECT_EQ(setHostName(refused, "device"), kDNSServiceErr_ServiceNotRunning);
    EXPECT_EQ(refused.reference, nullptr);

    ASSERT_TRUE(daemon().start());
    Request again;
    ASSERT_EQ(lookUp(again, "device.local"), 0);
    EXPECT_TRUE(processUntilReports(again, 2));
}

std::string mdnsState() {
    char value[PROPERTY_VALUE_MAX];
    property_get("init.svc.mdnsd", value, "");
    return value;
}

bool mdnsStarts() {
    const uint64_t mark = Journal::instance().mark();
    EXPECT_EQ(property_set("ctl.start", "mdnsd"), 0);
    return Journal::instance().waitFor("log", "mdnsd: Server startup complete", mark).has_value() &&
           mdnsState() == "running";
}

TEST_F(MdnsServiceTest, StartsAndStopsADaemonOfItsOwn) {
    Journal& journal = Journal::instance();
    daemon().stop();
    EXPECT_EQ(mdnsState(), "stopped");
    const std::string numberFile = std::string(kTestNetworkDirectory) + "/own-daemon.pid";
    Texts command = {"sh", "-c", "echo $$ >" + numberFile + "; exec \"$@\"", "sh"};
    const Texts real = daemon().command();
    command.insert(command.end(), real.begin(), real.end());
    hostplatform::setMdnsCommand(command);

    EXPECT_TRUE(mdnsStarts());
    Request request;
    EXPECT_EQ(lookUp(request, "device.local"), 0);
    uint64_t mark = journal.mark();
    EXPECT_EQ(property_set("ctl.start", "mdnsd"), 0);
    EXPECT_EQ(journal.texts("property", mark),
              (Texts{"ctl.start = \"mdnsd\"", "mdnsd was started before"}));

    // It dies by itself.
    pid_t number = 0;
    std::ifstream(numberFile) >> number;
    ASSERT_GT(number, 1);
    ASSERT_EQ(kill(number, SIGKILL), 0);
    EXPECT_TRUE(processUntil({&request}, [&] {
        return !request.reports.empty() && request.reports.back().substr(0, 5) == "error";
    }));
    EXPECT_EQ(mdnsState(), "stopped");
    EXPECT_TRUE(mdnsStarts());

    // Also one that hangs can be stopped.
    std::ifstream(numberFile) >> number;
    ASSERT_EQ(kill(number, SIGSTOP), 0);
    mark = journal.mark();
    EXPECT_EQ(property_set("ctl.stop", "mdnsd"), 0);
    EXPECT_EQ(journal.texts("property", mark), (Texts{"ctl.stop = \"mdnsd\"", "mdnsd stopped"}));
    EXPECT_EQ(mdnsState(), "stopped");
    EXPECT_EQ(kill(number, 0), -1) << "it is still there";
}

TEST_F(MdnsServiceTest, LeavesADaemonAloneThatIsNotItsOwn) {
    hostplatform::setMdnsCommand({"false"});
    EXPECT_EQ(mdnsState(), "running");
    EXPECT_EQ(property_set("ctl.start", "mdnsd"), 0);
    EXPECT_EQ(property_set("ctl.stop", "mdnsd"), 0);
    EXPECT_EQ(mdnsState(), "running");

    daemon().kill();
    hostplatform::setMdnsCommand({"no-such-daemon"});
    EXPECT_EQ(property_set("ctl.start", "mdnsd"), 0);
    EXPECT_EQ(mdnsState(), "stopped");
    EXPECT_EQ(Journal::instance().count("log",
                                        "E/hostplatform: mdnsd cannot be started: there is "
                                        "no no-such-daemon"),
              1U);
}

}  // namespace
