#include "FakeDnsSd.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <thread>
#include <utility>

#include "Journal.h"
#include "TextFormat.h"

using hostplatform::format;
using hostplatform::Journal;

namespace {

constexpr uintptr_t kStep = 16;  // references look like pointers to something

DNSServiceRef referenceOf(uintptr_t number) {
    return reinterpret_cast<DNSServiceRef>(number * kStep);  // NOLINT(performance-no-int-to-ptr)
}

thread_local DNSServiceErrorType nextError = kDNSServiceErr_NoError;

const char* textOr(const char* text) { return text == nullptr ? "(null)" : text; }

// A result's text as the callback gets it.
const char* given(const FakeDnsSd::Result& result, const std::string& text) {
    return result.error == kDNSServiceErr_NoError ? text.c_str() : nullptr;
}

std::string hex(const void* bytes, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += format("%02x", static_cast<const unsigned char*>(bytes)[i]);
    }
    return text;
}

union SocketAddress {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

SocketAddress socketAddress(const std::string& text) {
    SocketAddress address{};
    if (inet_pton(AF_INET, text.c_str(), &address.v4.sin_addr) == 1) {
        address.any.sa_family = AF_INET;
    } else {
        inet_pton(AF_INET6, text.c_str(), &address.v6.sin6_addr);
        address.any.sa_family = AF_INET6;
    }
    return address;
}

}  // namespace

struct FakeDnsSd::Reference {
    explicit Reference(Report function) : report(std::move(function)) {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) sockets[0] = -1;
    }
    ~Reference() { closeSockets(); }
    Reference(const Reference&) = delete;
    Reference& operator=(const Reference&) = delete;

    void closeSockets() {
        for (int& descriptor : sockets) {
            if (descriptor != -1) close(descriptor);
            descriptor = -1;
        }
    }

    const Report report;
    int sockets[2] = {-1, -1};   // the client's and the daemon's
    std::deque<Result> results;  // when there are any, one byte is in the client's socket
    std::thread::id processing;  // by which thread, if any
    bool deallocating = false;
    bool broken = false;
    bool socketLost = false;
};

FakeDnsSd& FakeDnsSd::instance() {
    static auto* const fake = new FakeDnsSd;
    return *fake;
}

void FakeDnsSd::setJournalled(bool journalled) { mJournalled = journalled; }

void FakeDnsSd::journal(const std::string& text) {
    if (mJournalled) Journal::instance().add("dns-sd", text);
}

std::shared_ptr<FakeDnsSd::Reference> FakeDnsSd::find(DNSServiceRef ref) const {
    const auto found = mReferences.find(ref);
    return found == mReferences.end() ? nullptr : found->second;
}

void FakeDnsSd::violation(const char* function, DNSServiceRef ref, const char* what) {
    mViolations.push_back(format("%s(%p): %s", function, static_cast<void*>(ref), what));
    journal("VIOLATION " + mViolations.back());
}

std::shared_ptr<FakeDnsSd::Reference> FakeDnsSd::use(DNSServiceRef ref, const char* function) {
    auto reference = find(ref);
    if (reference == nullptr) {
        const auto value = reinterpret_cast<uintptr_t>(ref);
        const bool known = value != 0 && value % kStep == 0 && value <= mNewest * kStep;
        violation(function, ref, known ? "after its deallocation" : "no reference");
    } else if (reference->deallocating) {
        violation(function, ref, "during its deallocation");
        reference = nullptr;
    }
    return reference;
}

bool FakeDnsSd::answer(DNSServiceRef ref, const Result& result) {
    const std::lock_guard lock(mMutex);
    const auto reference = find(ref);
    if (reference == nullptr || reference->deallocating) return false;
    reference->results.push_back(result);
    if (reference->results.size() == 1 && !reference->broken) {
        (void)!write(reference->sockets[1], "r", 1);
    }
    return true;
}

bool FakeDnsSd::breakConnection(DNSServiceRef ref) {
    const std::lock_guard lock(mMutex);
    const auto reference = find(ref);
    if (reference == nullptr || reference->deallocating) return false;
    if (!reference->broken) close(std::exchange(reference->sockets[1], -1));
    reference->broken = true;
    return true;
}

void FakeDnsSd::loseSocket(DNSServiceRef ref) {
    const std::lock_guard lock(mMutex);
    if (const auto reference = find(ref)) reference->socketLost = true;
}

void FakeDnsSd::failNextCall(DNSServiceErrorType error) { nextError = error; }

void FakeDnsSd::onStart(Hook hook) {
    const std::lock_guard lock(mMutex);
    mOnStart = hook ? std::make_shared<const Hook>(std::move(hook)) : nullptr;
}

void FakeDnsSd::onDeallocate(Hook hook) {
    const std::lock_guard lock(mMutex);
    mOnDeallocate = hook ? std::make_shared<const Hook>(std::move(hook)) : nullptr;
}

DNSServiceRef FakeDnsSd::newest() const {
    const std::lock_guard lock(mMutex);
    return referenceOf(mNewest);
}

int FakeDnsSd::socketOf(DNSServiceRef ref) const {
    const std::lock_guard lock(mMutex);
    const auto reference = find(ref);
    return reference == nullptr ? -1 : reference->sockets[0];
}

size_t FakeDnsSd::liveCount() const {
    const std::lock_guard lock(mMutex);
    return mReferences.size();
}

uint64_t FakeDnsSd::reportedCount() const {
    const std::lock_guard lock(mMutex);
    return mReported;
}

bool FakeDnsSd::idle() const {
    const std::lock_guard lock(mMutex);
    return mReporting == 0 &&
           std::all_of(mReferences.begin(), mReferences.end(),
                       [](const auto& entry) { return entry.second->results.empty(); });
}

std::vector<std::string> FakeDnsSd::takeViolations() {
    const std::lock_guard lock(mMutex);
    return std::exchange(mViolations, {});
}

DNSServiceErrorType FakeDnsSd::start(DNSServiceRef* ref, const std::string& call, const char* name,
                                     Report report) {
    journal(call);
    const DNSServiceErrorType error = std::exchange(nextError, kDNSServiceErr_NoError);
    if (error != kDNSServiceErr_NoError) return error;
    auto reference = std::make_shared<Reference>(std::move(report));
    if (reference->sockets[0] == -1) return kDNSServiceErr_NoMemory;
    std::shared_ptr<const Hook> hook;
    {
        const std::lock_guard lock(mMutex);
        *ref = referenceOf(++mNewest);
        mReferences.emplace(*ref, std::move(reference));
        hook = mOnStart;
    }
    if (hook != nullptr) (*hook)(*ref, textOr(name));
    return kDNSServiceErr_NoError;
}

int FakeDnsSd::socket(DNSServiceRef ref) {
    const std::lock_guard lock(mMutex);
    const auto reference = use(ref, "DNSServiceRefSockFD");
    return reference == nullptr || reference->socketLost ? -1 : reference->sockets[0];
}

DNSServiceErrorType FakeDnsSd::process(DNSServiceRef ref) {
    std::unique_lock lock(mMutex);
    const auto reference = use(ref, "DNSServiceProcessResult");
    if (reference == nullptr) return kDNSServiceErr_BadReference;
    if (reference->processing != std::thread::id()) {
        violation("DNSServiceProcessResult", ref, "while it is being processed");
        return kDNSServiceErr_BadState;
    }
    if (reference->broken) return kDNSServiceErr_ServiceNotRunning;
    if (reference->results.empty()) {
        // A real library would wait for one, and its caller with it.
        violation("DNSServiceProcessResult", ref, "without a result");
        return kDNSServiceErr_NoError;
    }
    const Result result = std::move(reference->results.front());
    reference->results.pop_front();
    char byte = 0;
    // Not by read(), which a test may be failing for its clients.
    if (reference->results.empty()) (void)!recv(reference->sockets[0], &byte, 1, 0);
    reference->processing = std::this_thread::get_id();
    ++mReported;
    ++mReporting;
    lock.unlock();
    reference->report(ref, result);
    lock.lock();
    --mReporting;
    reference->processing = std::thread::id();
    return kDNSServiceErr_NoError;
}

void FakeDnsSd::deallocate(DNSServiceRef ref) {
    journal("DNSServiceRefDeallocate");
    std::unique_lock lock(mMutex);
    const auto reference = use(ref, "DNSServiceRefDeallocate");
    if (reference == nullptr) return;
    if (reference->processing != std::thread::id() &&
        reference->processing != std::this_thread::get_id()) {
        violation("DNSServiceRefDeallocate", ref, "while another thread processes it");
    }
    reference->deallocating = true;
    const std::shared_ptr<const Hook> hook = mOnDeallocate;
    lock.unlock();
    if (hook != nullptr) (*hook)(ref, "");
    lock.lock();
    reference->closeSockets();
    mReferences.erase(ref);
}

// dns_sd.h

DNSServiceErrorType DNSServiceBrowse(DNSServiceRef* ref, DNSServiceFlags flags,
                                     uint32_t interfaceIndex, const char* type, const char* domain,
                                     DNSServiceBrowseReply callback, void* context) {
    return FakeDnsSd::instance().start(
        ref,
        format("DNSServiceBrowse(%u, %u, %s, %s)", flags, interfaceIndex, textOr(type),
               textOr(domain)),
        type, [=](DNSServiceRef self, const FakeDnsSd::Result& result) {
            callback(self, result.flags, 1, result.error, given(result, result.name),
                     given(result, result.type), given(result, result.domain), context);
        });
}

DNSServiceErrorType DNSServiceRegister(DNSServiceRef* ref, DNSServiceFlags flags,
                                       uint32_t interfaceIndex, const char* name, const char* type,
                                       const char* domain, const char* host, uint16_t port,
                                       uint16_t txtLength, const void* txt,
                                       DNSServiceRegisterReply callback, void* context) {
    return FakeDnsSd::instance().start(
        ref,
        format("DNSServiceRegister(%u, %u, %s, %s, %s, %s, %d, %d:%s)", flags, interfaceIndex,
               textOr(name), textOr(type), textOr(domain), textOr(host), ntohs(port), txtLength,
               hex(txt, txtLength).c_str()),
        name, [=](DNSServiceRef self, const FakeDnsSd::Result& result) {
            callback(self, result.flags, result.error, given(result, result.name),
                     given(result, result.type), given(result, result.domain), context);
        });
}

DNSServiceErrorType DNSServiceResolve(DNSServiceRef* ref, DNSServiceFlags flags,
                                      uint32_t interfaceIndex, const char* name, const char* type,
                                      const char* domain, DNSServiceResolveReply callback,
                                      void* context) {
    return FakeDnsSd::instance().start(
        ref,
        format("DNSServiceResolve(%u, %u, %s, %s, %s)", flags, interfaceIndex, textOr(name),
               textOr(type), textOr(domain)),
        name, [=](DNSServiceRef self, const FakeDnsSd::Result& result) {
            const unsigned char none = 0;  // an empty record is somewhere, too
            const unsigned char* const txt = result.txt.empty() ? &none : result.txt.data();
            const bool good = result.error == kDNSServiceErr_NoError;
            callback(self, result.flags, 1, result.error, given(result, result.name),
                     given(result, result.target), htons(result.port),
                     static_cast<uint16_t>(result.txt.size()), good ? txt : nullptr, context);
        });
}

DNSServiceErrorType DNSServiceGetAddrInfo(DNSServiceRef* ref, DNSServiceFlags flags,
                                          uint32_t interfaceIndex, DNSServiceProtocol protocol,
                                          const char* host, DNSServiceGetAddrInfoReply callback,
                                          void* context) {
    return FakeDnsSd::instance().start(
        ref,
        format("DNSServiceGetAddrInfo(%u, %u, %u, %s)", flags, interfaceIndex, protocol,
               textOr(host)),
        host, [=](DNSServiceRef self, const FakeDnsSd::Result& result) {
            const SocketAddress address = socketAddress(result.address);
            const bool good = result.error == kDNSServiceErr_NoError;
            callback(self, result.flags, 1, result.error, given(result, result.name),
                     good ? &address.any : nullptr, result.timeToLive, context);
        });
}

DNSServiceErrorType DNSSetHostname(DNSServiceRef* ref, DNSServiceFlags flags, const char* host,
                                   DNSSetHostnameReply callback, void* context) {
    return FakeDnsSd::instance().start(
        ref, format("DNSSetHostname(%u, %s)", flags, textOr(host)), host,
        [=](DNSServiceRef self, const FakeDnsSd::Result& result) {
            callback(self, result.flags, result.error, given(result, result.name), context);
        });
}

int DNSServiceRefSockFD(DNSServiceRef ref) { return FakeDnsSd::instance().socket(ref); }

DNSServiceErrorType DNSServiceProcessResult(DNSServiceRef ref) {
    return FakeDnsSd::instance().process(ref);
}

void DNSServiceRefDeallocate(DNSServiceRef ref) { FakeDnsSd::instance().deallocate(ref); }
