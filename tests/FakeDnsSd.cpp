#include "FakeDnsSd.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <deque>
#include <thread>
#include <utility>

#include "host/SimulatedDevice.h"
#include "host/UniqueFd.h"
#include "host/text_format.h"

using hostplatform::format;
using hostplatform::UniqueFd;
using Result = FakeDnsSd::Result;

namespace {

const char* orNull(const char* text) { return text == nullptr ? "(null)" : text; }

// A result's text as the callback gets it.
const char* given(const Result& result, const std::string& text) {
    return result.error == kDNSServiceErr_NoError ? text.c_str() : nullptr;
}

sockaddr_storage socketAddress(const std::string& text) {
    sockaddr_storage address{};
    auto& v4 = reinterpret_cast<sockaddr_in&>(address);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
    const bool isV4 = inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1;
    address.ss_family = isV4 ? AF_INET : AF_INET6;
    if (!isV4) inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr);
    return address;
}

}  // namespace

struct FakeDnsSd::Reference {
    std::string name;
    Report report;
    UniqueFd client, daemon = {};     // the ends of its socket; without a daemon it is broken
    std::deque<Result> results = {};  // when there are any, one byte is in the client's socket
    std::thread::id processing = {};  // by which thread, if any
    bool deallocating = false;
};

FakeDnsSd& FakeDnsSd::instance() {
    static auto* const fake = new FakeDnsSd;
    return *fake;
}

void FakeDnsSd::journal(const std::string& text) const {
    if (journalled) hostplatform::device().journal().add("dns-sd", text);
}

bool FakeDnsSd::connectionClosed() const {
    if (connectionsClosed) raise(SIGPIPE);
    return connectionsClosed;
}

std::shared_ptr<FakeDnsSd::Reference> FakeDnsSd::find(DNSServiceRef ref, const char* function) {
    const auto found = mReferences.find(ref);
    if (found != mReferences.end() && !found->second->deallocating) return found->second;
    if (function != nullptr) violation(function, ref, "after its deallocation has begun");
    return nullptr;
}

void FakeDnsSd::violation(const char* function, DNSServiceRef ref, const char* what) {
    mViolations.push_back(format("%s(%p): %s", function, static_cast<void*>(ref), what));
    journal("VIOLATION " + mViolations.back());
}

bool FakeDnsSd::answer(DNSServiceRef ref, const Result& result) {
    const std::lock_guard lock(mMutex);
    const auto reference = find(ref);
    if (reference == nullptr) return false;
    reference->results.push_back(result);
    if (reference->results.size() == 1) (void)!write(reference->daemon.get(), "r", 1);
    return true;
}

bool FakeDnsSd::breakConnection(DNSServiceRef ref) {
    const std::lock_guard lock(mMutex);
    const auto reference = find(ref);
    if (reference == nullptr) return false;
    reference->daemon.reset();
    return true;
}

DNSServiceRef FakeDnsSd::newest() const {
    const std::lock_guard lock(mMutex);
    return mNewest;
}

size_t FakeDnsSd::liveCount() const {
    const std::lock_guard lock(mMutex);
    return mReferences.size();
}

bool FakeDnsSd::idle() const {
    const std::lock_guard lock(mMutex);
    return mReporting == 0 &&
           std::all_of(mReferences.begin(), mReferences.end(), [](const auto& entry) {
               return !entry.second->daemon || entry.second->results.empty();
           });
}

DNSServiceErrorType FakeDnsSd::start(DNSServiceRef* ref, const std::string& call, const char* name,
                                     Report report) {
    journal(call);
    if (sNextError != kDNSServiceErr_NoError) return std::exchange(sNextError, 0);
    if (connectionClosed()) return kDNSServiceErr_ServiceNotRunning;
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
        return kDNSServiceErr_NoMemory;
    }
    const std::shared_ptr<Reference> reference(
        new Reference{orNull(name), std::move(report), UniqueFd(sockets[0]), UniqueFd(sockets[1])});
    std::unique_lock lock(mMutex);
    const uintptr_t number = reinterpret_cast<uintptr_t>(mNewest) + 16;  // looks like a pointer
    *ref = mNewest = reinterpret_cast<DNSServiceRef>(number);  // NOLINT(performance-no-int-to-ptr)
    mReferences.emplace(*ref, reference);
    const Hook hook = mOnStart;
    lock.unlock();
    if (hook) hook(*ref, reference->name);
    return kDNSServiceErr_NoError;
}

int FakeDnsSd::socket(DNSServiceRef ref) {
    const std::lock_guard lock(mMutex);
    const auto reference = find(ref, "DNSServiceRefSockFD");
    return reference == nullptr ? -1 : reference->client.get();
}

DNSServiceErrorType FakeDnsSd::process(DNSServiceRef ref) {
    std::unique_lock lock(mMutex);
    const auto reference = find(ref, "DNSServiceProcessResult");
    if (reference == nullptr) return kDNSServiceErr_BadReference;
    if (reference->processing != std::thread::id()) {
        violation("DNSServiceProcessResult", ref, "while it is being processed");
        return kDNSServiceErr_BadState;
    }
    if (!reference->daemon || connectionClosed()) {
        journal("DNSServiceProcessResult fails: " + reference->name);
        return kDNSServiceErr_ServiceNotRunning;
    }
    if (reference->results.empty()) {
        // A real library would wait for one, and its caller with it.
        violation("DNSServiceProcessResult", ref, "without a result");
        return kDNSServiceErr_NoError;
    }
    reference->processing = std::this_thread::get_id();
    do {
        const Result result = std::move(reference->results.front());
        reference->results.pop_front();
        char byte = 0;
        // Not by read(), which a test may be failing for its clients.
        if (reference->results.empty()) (void)!recv(reference->client.get(), &byte, 1, 0);
        ++mReporting;
        lock.unlock();
        reference->report(ref, result);
        lock.lock();
        --mReporting;
    } while (reportAll && !reference->deallocating && !reference->results.empty());
    reference->processing = std::thread::id();
    return kDNSServiceErr_NoError;
}

void FakeDnsSd::deallocate(DNSServiceRef ref) {
    connectionClosed();
    std::unique_lock lock(mMutex);
    const auto reference = find(ref, "DNSServiceRefDeallocate");
    if (reference == nullptr) return;
    journal("DNSServiceRefDeallocate " + reference->name);
    if (reference->processing != std::thread::id() &&
        reference->processing != std::this_thread::get_id()) {
        violation("DNSServiceRefDeallocate", ref, "while another thread processes it");
    }
    reference->deallocating = true;
    const Hook hook = mOnDeallocate;
    lock.unlock();
    if (hook) hook(ref, reference->name);
    lock.lock();
    reference->client.reset();  // while its own result may still keep the rest
    mReferences.erase(ref);
}

// dns_sd.h

DNSServiceErrorType DNSServiceBrowse(DNSServiceRef* ref, DNSServiceFlags flags,
                                     uint32_t interfaceIndex, const char* type, const char* domain,
                                     DNSServiceBrowseReply callback, void* context) {
    return FakeDnsSd::instance().start(
        ref, format("browse(%u, %u, %s, %s)", flags, interfaceIndex, type, orNull(domain)), type,
        [=](DNSServiceRef self, const Result& r) {
            callback(self, r.flags, 1, r.error, given(r, r.name), given(r, r.type),
                     given(r, r.domain), context);
        });
}

DNSServiceErrorType DNSServiceRegister(DNSServiceRef* ref, DNSServiceFlags flags,
                                       uint32_t interfaceIndex, const char* name, const char* type,
                                       const char* domain, const char* host, uint16_t port,
                                       uint16_t txtLength, const void* txt,
                                       DNSServiceRegisterReply callback, void* context) {
    std::string bytes;
    for (int i = 0; i < txtLength; ++i) {
        bytes += format("%02x", static_cast<const unsigned char*>(txt)[i]);
    }
    return FakeDnsSd::instance().start(
        ref,
        format("register(%u, %u, %s, %s, %s, %s, %d, %s)", flags, interfaceIndex, name, type,
               orNull(domain), orNull(host), ntohs(port), bytes.c_str()),
        name, [=](DNSServiceRef self, const Result& r) {
            callback(self, r.flags, r.error, given(r, r.name), given(r, r.type), given(r, r.domain),
                     context);
        });
}

DNSServiceErrorType DNSServiceResolve(DNSServiceRef* ref, DNSServiceFlags flags,
                                      uint32_t interfaceIndex, const char* name, const char* type,
                                      const char* domain, DNSServiceResolveReply callback,
                                      void* context) {
    return FakeDnsSd::instance().start(
        ref, format("resolve(%u, %u, %s, %s, %s)", flags, interfaceIndex, name, type, domain), name,
        [=](DNSServiceRef self, const Result& r) {
            static const unsigned char none = 0;  // an empty record is somewhere, too
            const unsigned char* txt = r.txt.empty() ? &none : r.txt.data();
            if (r.error != kDNSServiceErr_NoError) txt = nullptr;
            callback(self, r.flags, 1, r.error, given(r, r.name), given(r, r.target), htons(r.port),
                     static_cast<uint16_t>(r.txt.size()), txt, context);
        });
}

DNSServiceErrorType DNSServiceGetAddrInfo(DNSServiceRef* ref, DNSServiceFlags flags,
                                          uint32_t interfaceIndex, DNSServiceProtocol protocol,
                                          const char* host, DNSServiceGetAddrInfoReply callback,
                                          void* context) {
    return FakeDnsSd::instance().start(
        ref, format("getaddrinfo(%u, %u, %u, %s)", flags, interfaceIndex, protocol, host), host,
        [=](DNSServiceRef self, const Result& r) {
            const sockaddr_storage address = socketAddress(r.address);
            const auto* any = reinterpret_cast<const sockaddr*>(&address);
            if (r.error != kDNSServiceErr_NoError) any = nullptr;
            callback(self, r.flags, 1, r.error, given(r, r.name), any, r.timeToLive, context);
        });
}

DNSServiceErrorType DNSSetHostname(DNSServiceRef* ref, DNSServiceFlags flags, const char* host,
                                   DNSSetHostnameReply callback, void* context) {
    return FakeDnsSd::instance().start(ref, format("sethostname(%u, %s)", flags, host), host,
                                       [=](DNSServiceRef self, const Result& r) {
                                           callback(self, r.flags, r.error, given(r, r.name),
                                                    context);
                                       });
}

int DNSServiceRefSockFD(DNSServiceRef ref) { return FakeDnsSd::instance().socket(ref); }

DNSServiceErrorType DNSServiceProcessResult(DNSServiceRef ref) {
    return FakeDnsSd::instance().process(ref);
}

void DNSServiceRefDeallocate(DNSServiceRef ref) { FakeDnsSd::instance().deallocate(ref); }
