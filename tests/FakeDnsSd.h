// A DNS-SD client library for tests of the command channel, in place of the installed one: linked
// into a test's executable, its functions of dns_sd.h come before every library's.
//
// A reference has a real socket pair, so the kernel gives its descriptor numbers out again as soon
// as it is deallocated, also from inside its own result. What a client must not do is written down
// as a violation: to use a reference after its deallocation, to process it on two threads, during
// its deallocation or without a result, to deallocate it twice or while another thread processes
// it. A DNSServiceRef is never the value of an earlier one, so none of this is missed because
// memory was used again.
//
// Every call that starts or ends a reference is an entry of the journal's component "dns-sd", until
// setJournalled(false). All functions are callable on any thread, also from inside results and the
// hooks below.
#pragma once

#include <dns_sd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

class FakeDnsSd {
 public:
    // What a callback gets; each operation uses what it knows of. With an error every text and
    // address is null.
    struct Result {
        DNSServiceErrorType error = kDNSServiceErr_NoError;
        DNSServiceFlags flags = 0;
        std::string name;  // of the service or the host
        std::string type;
        std::string domain;
        std::string target;
        uint16_t port = 0;  // in host byte order
        std::vector<unsigned char> txt;
        std::string address;  // IPv4 or IPv6, as text
        uint32_t timeToLive = 0;
    };
    using Hook = std::function<void(DNSServiceRef ref, const std::string& name)>;

    // The one library of the process; never destroyed.
    static FakeDnsSd& instance();

    // Lets one more DNSServiceProcessResult report `result`, and the socket be readable until then.
    // False when the reference is gone.
    bool answer(DNSServiceRef ref, const Result& result);
    // The daemon goes: the socket is readable from now on, and processing fails. False as above.
    bool breakConnection(DNSServiceRef ref);
    // DNSServiceRefSockFD gives -1 from now on.
    void loseSocket(DNSServiceRef ref);
    void setJournalled(bool journalled);
    // The next call on this thread that starts a reference makes none and returns `error`.
    static void failNextCall(DNSServiceErrorType error);

    // Called before a call that starts a reference returns, with its service type (browse), service
    // name (register, resolve) or host name. An empty function ends that.
    void onStart(Hook hook);
    // Called in the middle of a deallocation, with an empty name.
    void onDeallocate(Hook hook);

    DNSServiceRef newest() const;
    int socketOf(DNSServiceRef ref) const;  // -1 when it is gone
    size_t liveCount() const;
    uint64_t reportedCount() const;  // callbacks called
    // Whether every result that a live reference was given has been reported, and every callback
    // has returned.
    bool idle() const;
    // What has been written down since the last time.
    std::vector<std::string> takeViolations();

    // dns_sd.h
    using Report = std::function<void(DNSServiceRef ref, const Result& result)>;
    DNSServiceErrorType start(DNSServiceRef* ref, const std::string& call, const char* name,
                              Report report);
    int socket(DNSServiceRef ref);
    DNSServiceErrorType process(DNSServiceRef ref);
    void deallocate(DNSServiceRef ref);

 private:
    struct Reference;

    FakeDnsSd() = default;
    void journal(const std::string& text);
    // With mMutex held; null, and a violation, for one that is gone or going.
    std::shared_ptr<Reference> use(DNSServiceRef ref, const char* function);
    std::shared_ptr<Reference> find(DNSServiceRef ref) const;
    void violation(const char* function, DNSServiceRef ref, const char* what);

    std::atomic<bool> mJournalled{true};
    mutable std::mutex mMutex;  // guards everything below
    std::unordered_map<DNSServiceRef, std::shared_ptr<Reference>> mReferences;
    uintptr_t mNewest = 0;  // counts them
    uint64_t mReported = 0;
    int mReporting = 0;  // also for references that their own results have deallocated
    std::vector<std::string> mViolations;
    std::shared_ptr<const Hook> mOnStart;
    std::shared_ptr<const Hook> mOnDeallocate;
};
