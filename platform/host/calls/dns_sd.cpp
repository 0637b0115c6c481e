// The functions of dns_sd.h that Avahi's client library lacks, and replacements of three others,
// which also accept the references made here. A program must link this library before the client
// library.
#include <avahi-common/malloc.h>
#include <dlfcn.h>
#include <dns_sd.h>
#include <netinet/in.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "android/log.h"
#include "host/Mutex.h"
#include "host/UniqueFd.h"

using hostplatform::Lock;
using hostplatform::UniqueFd;

namespace {

// --- The client library --------------------------------------------------------------------------

// When its daemon goes, Avahi's client library calls the first callback of a reference (browse,
// resolve, domains, query) that is not null. It sets only one of them and leaves the others as
// malloc returned them, so a resolve or query may jump to old heap contents. In zeroed memory it
// finds the right callback.
const AvahiAllocator zeroingAllocator = {
    [](size_t size) { return calloc(1, size); },
    free,
    realloc,
    calloc,
};

// Runs when this library is loaded: before Avahi allocates, and before another thread can read the
// environment.
__attribute__((constructor)) void prepareClientLibrary() {
    avahi_set_allocator(&zeroingAllocator);
    // Without it Avahi tells every program on standard error to use another interface.
    setenv("AVAHI_COMPAT_NOWARN", "1", 0);
}

// The client library's own versions of the functions replaced below.
struct ClientLibrary {
    decltype(&DNSServiceRefSockFD) refSockFd;
    decltype(&DNSServiceProcessResult) processResult;
    decltype(&DNSServiceRefDeallocate) refDeallocate;
};

template <typename Function>
void load(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    if (function == nullptr) __android_log_assert(name, "hostplatform", "there is no %s", name);
}

// Found through a function that only the client library has. dlsym(RTLD_NEXT) would search other
// libraries for a program that loads this library than for one that is linked with it.
const ClientLibrary& clientLibrary() {
    static const ClientLibrary functions = [] {
        ClientLibrary found{};
        Dl_info info{};
        dladdr(reinterpret_cast<const void*>(&DNSServiceQueryRecord), &info);
        void* const library = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
        load(library, "DNSServiceRefSockFD", found.refSockFd);
        load(library, "DNSServiceProcessResult", found.processResult);
        load(library, "DNSServiceRefDeallocate", found.refDeallocate);
        return found;
    }();
    return functions;
}

// --- Address queries -----------------------------------------------------------------------------

constexpr DNSServiceProtocol kBothFamilies = kDNSServiceProtocol_IPv4 | kDNSServiceProtocol_IPv6;

// The object behind a DNSServiceRef of DNSServiceGetAddrInfo: a record query for each address
// family. Callers call one function at a time, as the interface demands; only close() may be called
// inside the callback.
class AddressQuery {
 public:
    AddressQuery(const char* hostName, DNSServiceGetAddrInfoReply reply, void* context)
        : mHostName(hostName), mReply(reply), mContext(context) {}
    ~AddressQuery() { close(); }

    DNSServiceRef handle() { return reinterpret_cast<DNSServiceRef>(this); }

    // Readable while process() has a result. Constant until close().
    int descriptor() const { return mPoll.get(); }

    DNSServiceErrorType start(DNSServiceFlags flags, uint32_t interfaceIndex,
                              DNSServiceProtocol families) {
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
            const int socket = clientLibrary().refSockFd(reference);
            if (epoll_ctl(mPoll.get(), EPOLL_CTL_ADD, socket, &event) != 0) {
                return kDNSServiceErr_NoMemory;
            }
        }
        return kDNSServiceErr_NoError;
    }

    // Reports the results that have arrived; waits for one if there is none.
    DNSServiceErrorType process() {
        epoll_event ready[2];
        const auto count = TEMP_FAILURE_RETRY(epoll_wait(mPoll.get(), ready, 2, -1));
        DNSServiceErrorType result = count < 0 ? kDNSServiceErr_Unknown : kDNSServiceErr_NoError;
        for (long i = 0; i < count && !mClosed; ++i) {
            const auto* const query = static_cast<const Query*>(ready[i].data.ptr);
            const DNSServiceErrorType error = clientLibrary().processResult(query->reference);
            // Ignore the result of a reference that its callback has closed.
            if (error != kDNSServiceErr_NoError && !mClosed) result = error;
        }
        return result;
    }

    // Ends both queries. No callback follows.
    void close() {
        mClosed = true;
        for (Query& query : mQueries) {
            if (query.reference == nullptr) continue;
            clientLibrary().refDeallocate(std::exchange(query.reference, nullptr));
        }
        mPoll.reset();
    }

 private:
    struct Query {
        AddressQuery* owner;
        DNSServiceProtocol family;
        uint16_t recordType;
        DNSServiceRef reference = nullptr;
    };

    static void onRecord(DNSServiceRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                         DNSServiceErrorType error, const char* fullName, uint16_t type, uint16_t,
                         uint16_t length, const void* data, uint32_t ttl, void* context) {
        const Query& query = *static_cast<Query*>(context);
        AddressQuery& self = *query.owner;
        // One call can deliver several records, and the first callback may have closed the query.
        if (self.mClosed) return;
        if (error != kDNSServiceErr_NoError) {
            // Both queries fail when the daemon goes; report that once, for the caller made one
            // request.
            if (std::exchange(self.mFailed, true)) return;
            self.mReply(self.handle(), 0, 0, error, self.mHostName.c_str(), nullptr, 0,
                        self.mContext);
        } else if (type == query.recordType &&
                   length == (type == kDNSServiceType_A ? sizeof(in_addr) : sizeof(in6_addr))) {
            self.onAddress(flags, interfaceIndex, fullName,
                           std::string(static_cast<const char*>(data), length), ttl);
        }
    }

    void onAddress(DNSServiceFlags flags, uint32_t interfaceIndex, std::string fullName,
                   const std::string& address, uint32_t ttl) {
        int& times = mAddresses[{interfaceIndex, address}];
        const bool wasThere = times > 0;
        times = std::max(0, times + ((flags & kDNSServiceFlagsAdd) != 0 ? 1 : -1));
        if (wasThere == (times > 0)) return;

        sockaddr_in v4{};
        sockaddr_in6 v6{};
        const bool isV4 = address.size() == sizeof v4.sin_addr;
        if (isV4) {
            v4.sin_family = AF_INET;
            memcpy(&v4.sin_addr, address.data(), sizeof v4.sin_addr);
        } else {
            v6.sin6_family = AF_INET6;
            memcpy(&v6.sin6_addr, address.data(), sizeof v6.sin6_addr);
            if (IN6_IS_ADDR_LINKLOCAL(&v6.sin6_addr)) v6.sin6_scope_id = interfaceIndex;
        }
        // Full names end with a dot, as in resolve results; record queries omit it.
        if (fullName.empty() || fullName.back() != '.') fullName += '.';
        mReply(handle(), flags, interfaceIndex, kDNSServiceErr_NoError, fullName.c_str(),
               isV4 ? reinterpret_cast<const sockaddr*>(&v4) : reinterpret_cast<sockaddr*>(&v6),
               ttl, mContext);
    }

    const std::string mHostName;
    const DNSServiceGetAddrInfoReply mReply;
    void* const mContext;
    // An epoll descriptor is readable while a descriptor in it is.
    UniqueFd mPoll{epoll_create1(EPOLL_CLOEXEC)};
    Query mQueries[2] = {{this, kDNSServiceProtocol_IPv4, kDNSServiceType_A},
                         {this, kDNSServiceProtocol_IPv6, kDNSServiceType_AAAA}};
    // The number of reports of each address on an interface: the daemon reports an address once for
    // each protocol over which it learned it. The caller gets the first arrival and the last
    // removal.
    std::map<std::pair<uint32_t, std::string>, int> mAddresses;
    bool mFailed = false;
    bool mClosed = false;
};

// All queries by handle. The table owns a query until DNSServiceRefDeallocate; a running
// DNSServiceProcessResult shares the ownership.
hostplatform::Mutex queriesMutex;  // not held while a query is called
std::map<DNSServiceRef, std::shared_ptr<AddressQuery>>& queries() REQUIRES(queriesMutex) {
    static auto* const table = new std::map<DNSServiceRef, std::shared_ptr<AddressQuery>>;
    return *table;
}

// Returns null for a reference of the client library.
std::shared_ptr<AddressQuery> queryOf(DNSServiceRef sdRef) {
    const Lock lock(queriesMutex);
    const auto found = queries().find(sdRef);
    return found == queries().end() ? nullptr : found->second;
}

}  // namespace

int DNSServiceRefSockFD(DNSServiceRef sdRef) {
    const auto query = queryOf(sdRef);
    return query != nullptr ? query->descriptor() : clientLibrary().refSockFd(sdRef);
}

DNSServiceErrorType DNSServiceProcessResult(DNSServiceRef sdRef) {
    const auto query = queryOf(sdRef);
    return query != nullptr ? query->process() : clientLibrary().processResult(sdRef);
}

void DNSServiceRefDeallocate(DNSServiceRef sdRef) {
    const auto query = queryOf(sdRef);
    if (query == nullptr) return clientLibrary().refDeallocate(sdRef);
    query->close();
    const Lock lock(queriesMutex);
    queries().erase(sdRef);
}

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
        query->start(flags, interfaceIndex, protocol != 0 ? protocol : kBothFamilies);
    if (error != kDNSServiceErr_NoError) return error;
    *sdRef = query->handle();
    const Lock lock(queriesMutex);
    queries().emplace(*sdRef, std::move(query));
    return kDNSServiceErr_NoError;
}

// Refused: an Avahi daemon would rename the workstation.
DNSServiceErrorType DNSSetHostname(DNSServiceRef*, DNSServiceFlags, const char*,
                                   DNSSetHostnameReply, void*) {
    return kDNSServiceErr_Unsupported;
}
