#include "PlainDnsSd.h"

#include <arpa/inet.h>
#include <dns_sd.h>
#include <netinet/in.h>
#include <poll.h>

#include <chrono>
#include <cstring>
#include <functional>

namespace {

using Clock = std::chrono::steady_clock;

struct Lookup {
    ResolvedService service;
    std::string hostName;
};

class Request {
 public:
    Request() = default;
    ~Request() {
        if (mReference != nullptr) DNSServiceRefDeallocate(mReference);
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    DNSServiceRef* reference() { return &mReference; }

    // Takes results until `done`; false when that is not before the deadline.
    bool run(Clock::time_point deadline, const std::function<bool()>& done) {
        while (!done()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd ready{DNSServiceRefSockFD(mReference), POLLIN, 0};
            if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0 ||
                DNSServiceProcessResult(mReference) != kDNSServiceErr_NoError) {
                return false;
            }
        }
        return true;
    }

 private:
    DNSServiceRef mReference = nullptr;
};

void onFound(DNSServiceRef, DNSServiceFlags flags, uint32_t, DNSServiceErrorType error,
             const char* name, const char*, const char*, void* context) {
    if (error != kDNSServiceErr_NoError || (flags & kDNSServiceFlagsAdd) == 0) return;
    std::string& found = static_cast<Lookup*>(context)->service.name;
    if (found.empty()) found = name;
}

void onResolved(DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType error, const char*,
                const char* host, uint16_t port, uint16_t, const unsigned char*, void* context) {
    if (error != kDNSServiceErr_NoError) return;
    static_cast<Lookup*>(context)->hostName = host;
    static_cast<Lookup*>(context)->service.port = ntohs(port);
}

void onAddress(DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType error, const char*,
               const sockaddr* address, uint32_t, void* context) {
    if (error != kDNSServiceErr_NoError || address->sa_family != AF_INET) return;
    sockaddr_in v4{};
    memcpy(&v4, address, sizeof v4);
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
    static_cast<Lookup*>(context)->service.ipv4 = text;
}

std::optional<ResolvedService> look(const std::string& name, const std::string& regType) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    Lookup lookup;
    lookup.service.name = name;

    Request browse;
    if (name.empty() && (DNSServiceBrowse(browse.reference(), 0, 0, regType.c_str(), nullptr,
                                          onFound, &lookup) != kDNSServiceErr_NoError ||
                         !browse.run(deadline, [&] { return !lookup.service.name.empty(); }))) {
        return std::nullopt;
    }
    Request resolve;
    if (DNSServiceResolve(resolve.reference(), 0, 0, lookup.service.name.c_str(), regType.c_str(),
                          "local", onResolved, &lookup) != kDNSServiceErr_NoError ||
        !resolve.run(deadline, [&] { return !lookup.hostName.empty(); })) {
        return std::nullopt;
    }
    Request addresses;
    if (DNSServiceGetAddrInfo(addresses.reference(), 0, 0, 0, lookup.hostName.c_str(), onAddress,
                              &lookup) != kDNSServiceErr_NoError ||
        !addresses.run(deadline, [&] { return !lookup.service.ipv4.empty(); })) {
        return std::nullopt;
    }
    return lookup.service;
}

}  // namespace

std::optional<ResolvedService> findService(const std::string& regType) { return look("", regType); }

std::optional<ResolvedService> resolveService(const std::string& name, const std::string& regType) {
    return look(name, regType);
}
