// A DNS-SD client library for tests of the command channel, in place of the installed one: linked
// into a test's executable, its functions of dns_sd.h come before every library's.
//
// A reference has a real socket pair, so the kernel gives its descriptor numbers out again as soon
// as it is deallocated, also from inside its own result. Misuse is written down as a violation: to
// use a reference after its deallocation, to process it on two threads, during its deallocation or
// without a result, to deallocate it twice or while another thread processes it. A DNSServiceRef is
// never the value of an earlier one, so reused memory hides none of this.
//
// Every call that starts or ends a reference is an entry of the journal's component "dns-sd", while
// `journalled` is set, and so is a DNSServiceProcessResult that fails. All functions are callable
// on any thread, also from inside results and the hooks below.
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
#include <utility>
#include <vector>

class FakeDnsSd {
 public:
    // What a callback gets; each operation takes the fields that it has. With an error every text
    // and address is null.
    struct Result {
        std::string name = {}, type = {}, domain = {}, target = {};  // `name` also of a host
        uint16_t port = 0;                                           // in host byte order
        std::vector<unsigned char> txt = {};
        std::string address = {};  // IPv4 or IPv6, as text
        uint32_t timeToLive = 0;
        DNSServiceFlags flags = 0;
        DNSServiceErrorType error = kDNSServiceErr_NoError;
    };
    using Hook = std::function<void(DNSServiceRef ref, const std::string& name)>;

    // The one library of the process; never destroyed.
    static FakeDnsSd& instance();

    // Lets one more DNSServiceProcessResult report `result`, and the socket be readable until then.
    // False when the reference is gone.
    bool answer(DNSServiceRef ref, const Result& result);
    // The daemon goes: the socket is readable from now on, and processing fails. False as above.
    bool breakConnection(DNSServiceRef ref);
    // The next call on this thread that starts a reference makes none and returns `error`.
    static void failNextCall(DNSServiceErrorType error) { sNextError = error; }

    // Called before a call that starts a reference returns, with its service type (browse), service
    // name (register, resolve) or host name. An empty function ends that.
    void onStart(Hook hook) { exchange(mOnStart, std::move(hook)); }
    // Called in the middle of a deallocation, with the same name.
    void onDeallocate(Hook hook) { exchange(mOnDeallocate, std::move(hook)); }

    DNSServiceRef newest() const;
    size_t liveCount() const;
    // Whether every result that a live reference was given has been reported, and every callback
    // has returned.
    bool idle() const;
    // What has been written down since the last time.
    std::vector<std::string> takeViolations() { return exchange(mViolations, {}); }

    std::atomic<bool> journalled{true};
    // One DNSServiceProcessResult reports all results that are waiting, or ends with the one that
    // deallocates its reference.
    std::atomic<bool> reportAll{false};
    // The daemon has closed every connection: calls write to a closed one, which raises SIGPIPE,
    // and those with a result fail.
    std::atomic<bool> connectionsClosed{false};

    // For dns_sd.h.
    using Report = std::function<void(DNSServiceRef ref, const Result& result)>;
    DNSServiceErrorType start(DNSServiceRef* ref, const std::string& call, const char* name,
                              Report report);
    int socket(DNSServiceRef ref);
    DNSServiceErrorType process(DNSServiceRef ref);
    void deallocate(DNSServiceRef ref);

 private:
    struct Reference;

    FakeDnsSd() = default;
    void journal(const std::string& text) const;
    bool connectionClosed() const;
    // With mMutex held; null for one that is gone or going, which is a violation in that function.
    std::shared_ptr<Reference> find(DNSServiceRef ref, const char* function = nullptr);
    void violation(const char* function, DNSServiceRef ref, const char* what);
    template <typename T>
    T exchange(T& member, T value) {
        const std::lock_guard lock(mMutex);
        return std::exchange(member, std::move(value));
    }

    inline static thread_local DNSServiceErrorType sNextError = kDNSServiceErr_NoError;
    mutable std::mutex mMutex;  // guards everything below
    std::unordered_map<DNSServiceRef, std::shared_ptr<Reference>> mReferences;
    DNSServiceRef mNewest = nullptr;
    int mReporting = 0;  // also for references that their own results have deallocated
    std::vector<std::string> mViolations;
    Hook mOnStart, mOnDeallocate;
};
