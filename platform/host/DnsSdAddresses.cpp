// DNSServiceGetAddrInfo on a client library without it: one record query for each family.
#include <arpa/inet.h>
#include <dns_sd.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "DnsSdReference.h"
#include "UniqueFd.h"

using namespace hostplatform;

namespace {

constexpr DNSServiceProtocol kBothFamilies = kDNSServiceProtocol_IPv4 | kDNSServiceProtocol_IPv6;

bool isRoutable(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        sockaddr_in v4{};
        memcpy(&v4, address, sizeof v4);
        const uint32_t number = ntohl(v4.sin_addr.s_addr);
        return number >> 24 != IN_LOOPBACKNET && number >> 16 != 0xa9fe;  // nor 169.254/16
    }
    sockaddr_in6 v6{};
    memcpy(&v6, address, sizeof v6);
    return !IN6_IS_ADDR_LOOPBACK(&v6.sin6_addr) && !IN6_IS_ADDR_LINKLOCAL(&v6.sin6_addr);
}

// The families in which this host has a routable address.
DNSServiceProtocol routableFamilies() {
    DNSServiceProtocol families = 0;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return kBothFamilies;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || (entry->ifa_flags & IFF_UP) == 0) continue;
        const int family = entry->ifa_addr->sa_family;
        if ((family != AF_INET && family != AF_INET6) || !isRoutable(entry->ifa_addr)) continue;
        families |= family == AF_INET ? kDNSServiceProtocol_IPv4 : kDNSServiceProtocol_IPv6;
    }
    freeifaddrs(list);
    return families;
}

bool isLinkLocalName(std::string_view name) {
    constexpr std::string_view kDomain = ".local";
    if (!name.empty() && name.back() == '.') name.remove_suffix(1);
    return name.size() >= kDomain.size() && strncasecmp(name.data() + name.size() - kDomain.size(),
                                                        kDomain.data(), kDomain.size()) == 0;
}

DNSServiceProtocol wantedFamilies(DNSServiceProtocol protocol, const char* hostName) {
    if (protocol != 0) return protocol;
    if (isLinkLocalName(hostName)) return kBothFamilies;
    const DNSServiceProtocol routable = routableFamilies();
    return routable != 0 ? routable : kBothFamilies;
}

class AddressQuery : public DnsSdReference {
 public:
    AddressQuery(const char* hostName, DNSServiceGetAddrInfoReply reply, void* context)
        : mHostName(hostName), mReply(reply), mContext(context) {}
    ~AddressQuery() override { close(); }

    DNSServiceErrorType start(DNSServiceFlags flags, uint32_t interfaceIndex,
                              DNSServiceProtocol families);

    // An epoll descriptor is readable while one of those in it is.
    int descriptor() const override { return mPoll.get(); }
    DNSServiceErrorType process() override;
    void close() override;

 private:
    struct Query {
        AddressQuery* owner;
        DNSServiceProtocol family;
        uint16_t recordType;
        DNSServiceRef reference = nullptr;
    };

    static void onRecord(DNSServiceRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                         DNSServiceErrorType error, const char* fullName, uint16_t type, uint16_t,
                         uint16_t length, const void* data, uint32_t ttl, void* context);
    void onAddress(DNSServiceFlags flags, uint32_t interfaceIndex, std::string fullName,
                   const std::string& address, uint32_t ttl);
    void onError(DNSServiceErrorType error);

    const std::string mHostName;
    const DNSServiceGetAddrInfoReply mReply;
    void* const mContext;
    UniqueFd mPoll{epoll_create1(EPOLL_CLOEXEC)};
    std::array<Query, 2> mQueries{{{this, kDNSServiceProtocol_IPv4, kDNSServiceType_A},
                                   {this, kDNSServiceProtocol_IPv6, kDNSServiceType_AAAA}}};
    // How often each address is there: the daemon reports it once for each protocol over which it
    // was learned, the caller is told when the first comes and when the last goes.
    std::map<std::pair<uint32_t, std::string>, int> mAddresses;
    bool mFailed = false;
    bool mClosed = false;
};

DNSServiceErrorType AddressQuery::start(DNSServiceFlags flags, uint32_t interfaceIndex,
                                        DNSServiceProtocol families) {
    if (!mPoll) return kDNSServiceErr_NoMemory;
    for (Query& query : mQueries) {
        if ((families & query.family) == 0) continue;
        DNSServiceRef reference = nullptr;
        const DNSServiceErrorType error =
            DNSServiceQueryRecord(&reference, flags, interfaceIndex, mHostName.c_str(),
                                  query.recordType, kDNSServiceClass_IN, onRecord, &query);
        if (error != kDNSServiceErr_NoError) return error;
        query.reference = reference;
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = &query;
        if (epoll_ctl(mPoll.get(), EPOLL_CTL_ADD, nativeDnsSd().refSockFd(reference), &event) !=
            0) {
            return kDNSServiceErr_NoMemory;
        }
    }
    return kDNSServiceErr_NoError;
}

DNSServiceErrorType AddressQuery::process() {
    std::array<epoll_event, 2> ready{};
    const auto count = TEMP_FAILURE_RETRY(
        epoll_wait(mPoll.get(), ready.data(), static_cast<int>(ready.size()), -1));
    if (count < 0) return kDNSServiceErr_Unknown;
    DNSServiceErrorType result = kDNSServiceErr_NoError;
    for (size_t i = 0; i < static_cast<size_t>(count) && !mClosed; ++i) {
        const DNSServiceErrorType error =
            nativeDnsSd().processResult(static_cast<Query*>(ready.at(i).data.ptr)->reference);
        // A native reference that was closed in its callback has nothing to say here.
        if (error != kDNSServiceErr_NoError && !mClosed) result = error;
    }
    return result;
}

void AddressQuery::close() {
    mClosed = true;
    for (Query& query : mQueries) {
        if (query.reference == nullptr) continue;
        nativeDnsSd().refDeallocate(std::exchange(query.reference, nullptr));
    }
    mPoll.reset();
}

void AddressQuery::onRecord(DNSServiceRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                            DNSServiceErrorType error, const char* fullName, uint16_t type,
                            uint16_t, uint16_t length, const void* data, uint32_t ttl,
                            void* context) {
    const Query& query = *static_cast<Query*>(context);
    // Closed in a callback: what else the same round has found is for nobody any more.
    if (query.owner->mClosed) return;
    if (error != kDNSServiceErr_NoError) {
        query.owner->onError(error);
    } else if (type == query.recordType &&
               length == (type == kDNSServiceType_A ? sizeof(in_addr) : sizeof(in6_addr))) {
        query.owner->onAddress(flags, interfaceIndex, fullName,
                               std::string(static_cast<const char*>(data), length), ttl);
    }
}

void AddressQuery::onAddress(DNSServiceFlags flags, uint32_t interfaceIndex, std::string fullName,
                             const std::string& address, uint32_t ttl) {
    const bool added = (flags & kDNSServiceFlagsAdd) != 0;
    const auto entry = mAddresses.try_emplace({interfaceIndex, address}, 0).first;
    const int before = entry->second;
    entry->second = std::max(0, before + (added ? 1 : -1));
    const bool changed = (before == 0) != (entry->second == 0);
    if (entry->second == 0) mAddresses.erase(entry);
    if (!changed) return;

    sockaddr_storage storage{};
    if (address.size() == sizeof(in_addr)) {
        sockaddr_in v4{};
        v4.sin_family = AF_INET;
        memcpy(&v4.sin_addr, address.data(), sizeof v4.sin_addr);
        memcpy(&storage, &v4, sizeof v4);
    } else {
        sockaddr_in6 v6{};
        v6.sin6_family = AF_INET6;
        memcpy(&v6.sin6_addr, address.data(), sizeof v6.sin6_addr);
        if (IN6_IS_ADDR_LINKLOCAL(&v6.sin6_addr)) v6.sin6_scope_id = interfaceIndex;
        memcpy(&storage, &v6, sizeof v6);
    }
    // Full names end with a dot, as resolve results do; record queries leave it out.
    if (fullName.empty() || fullName.back() != '.') fullName += '.';
    mReply(handle(), flags, interfaceIndex, kDNSServiceErr_NoError, fullName.c_str(),
           reinterpret_cast<const sockaddr*>(&storage), ttl, mContext);
}

// Both queries fail when the daemon goes; the caller made one request and is told once.
void AddressQuery::onError(DNSServiceErrorType error) {
    if (std::exchange(mFailed, true)) return;
    mReply(handle(), 0, 0, error, mHostName.c_str(), nullptr, 0, mContext);
}

}  // namespace

DNSServiceErrorType DNSServiceGetAddrInfo(DNSServiceRef* sdRef, DNSServiceFlags flags,
                                          uint32_t interfaceIndex, DNSServiceProtocol protocol,
                                          const char* hostname, DNSServiceGetAddrInfoReply callBack,
                                          void* context) {
    if (sdRef == nullptr || hostname == nullptr || *hostname == '\0' || callBack == nullptr ||
        (protocol & ~kBothFamilies) != 0) {
        return kDNSServiceErr_BadParam;
    }
    auto query = std::make_shared<AddressQuery>(hostname, callBack, context);
    const DNSServiceErrorType error =
        query->start(flags, interfaceIndex, wantedFamilies(protocol, hostname));
    if (error == kDNSServiceErr_NoError) *sdRef = publish(std::move(query));
    return error;
}
