// From browsing until a peer's address is known, on a real network: this runs on one host of
// scripts/network.sh while a primary sink is registered on the other.
#include <arpa/inet.h>
#include <dns_sd.h>
#include <netinet/in.h>
#include <poll.h>

#include <functional>
#include <string>

#include "Arrivals.h"
#include "wfd_discovery.h"

namespace {

Arrivals arrivals;

void haveAddress(int result, const MDnsWfdServiceInfo*) {
    if (result == 0) arrivals.arrived();
}

double withLibrary() {
    arrivals.expect(1);
    const double taken = timed([] {
        mDnsDiscoverWfd(WFD_R2_PRIMARY_SINK, [](int result, const MDnsWfdServiceInfo* info) {
            if (result == 0) mDnsResolveWfd(info, haveAddress);
        });
        arrivals.wait();
    });
    mDnsClearInstances();
    return taken;
}

struct Peer {
    std::string name;
    std::string host;
    bool addressKnown = false;
};

// Starts a request and takes its results until `done`.
void run(const std::function<void(DNSServiceRef*)>& start, const std::function<bool()>& done) {
    DNSServiceRef ref = nullptr;
    start(&ref);
    while (!done()) {
        pollfd readable{DNSServiceRefSockFD(ref), POLLIN, 0};
        if (poll(&readable, 1, 10'000) <= 0) abort();
        DNSServiceProcessResult(ref);
    }
    DNSServiceRefDeallocate(ref);
}

void findPeer() {
    constexpr const char* kType = "_display._tcp";
    Peer peer;
    const auto found = [](DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType,
                          const char* name, const char*, const char*,
                          void* context) { static_cast<Peer*>(context)->name = name; };
    const auto resolved = [](DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType,
                             const char*, const char* host, uint16_t, uint16_t,
                             const unsigned char*,
                             void* context) { static_cast<Peer*>(context)->host = host; };
    const auto addressed = [](DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType,
                              const char*, const sockaddr*, uint32_t,
                              void* context) { static_cast<Peer*>(context)->addressKnown = true; };
    run([&](auto ref) { DNSServiceBrowse(ref, 0, 0, kType, nullptr, found, &peer); },
        [&] { return !peer.name.empty(); });
    run(
        [&](auto ref) {
            DNSServiceResolve(ref, 0, 0, peer.name.c_str(), kType, "local", resolved, &peer);
        },
        [&] { return !peer.host.empty(); });
    run([&](auto ref) { DNSServiceGetAddrInfo(ref, 0, 0, 0, peer.host.c_str(), addressed, &peer); },
        [&] { return peer.addressKnown; });
}

void browseToAddress(benchmark::State& state) {
    findPeer();  // waits for its registration
    compare(state, 1, 1.05, withLibrary, [] { return timed(findPeer); });
}
// Few: the library's discovery leaves a thread each time.
BENCHMARK(browseToAddress)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(25);

}  // namespace
