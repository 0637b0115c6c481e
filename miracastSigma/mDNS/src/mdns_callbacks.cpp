#include "mdns_callbacks.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <resolv.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "MDnsSdChannel.h"
#include "c_text.h"
#include "mdns_log.h"

namespace {

struct FreeText {
    void operator()(char* text) const { free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

Text quoted(const char* text) { return Text(MDnsResultListener::quoteArg(text)); }

// A result line. A short one is formatted inside the object, without an allocation.
class Line {
 public:
    __attribute__((__format__(printf, 2, 3))) explicit Line(const char* pattern, ...) {
        va_list arguments;
        va_start(arguments, pattern);
        const int length = vsnprintf(mShort, sizeof mShort, pattern, arguments);
        va_end(arguments);
        mFits = length >= 0 && static_cast<size_t>(length) < sizeof mShort;
        if (mFits || length < 0) return;
        const size_t size = static_cast<size_t>(length) + 1;
        mLong.reset(static_cast<char*>(malloc(size)));
        if (mLong == nullptr) return;
        va_start(arguments, pattern);
        vsnprintf(mLong.get(), size, pattern, arguments);
        va_end(arguments);
    }

    // Null if the line could not be formatted.
    const char* text() const { return mFits ? mShort : mLong.get(); }

 private:
    char mShort[512];
    bool mFits = false;
    Text mLong;
};

// The context stays valid until the result returns, even if the listener stops the request
// meanwhile.
MDnsSdChannel::Context& contextOf(void* context) {
    return *static_cast<MDnsSdChannel::Context*>(context);
}

void broadcast(const MDnsSdChannel::Context& context, int code, const Line& line) {
    context.mListener->sendBroadcast(code, line.text(), false);
}

void broadcastError(const MDnsSdChannel::Context& context, int code, DNSServiceErrorType error) {
    broadcast(context, code, Line("%d %d", context.mRequestId, error));
}

}  // namespace

void MDnsSdListenerDiscoverCallback(DNSServiceRef /*ref*/, DNSServiceFlags flags,
                                    uint32_t /*interfaceIndex*/, DNSServiceErrorType error,
                                    const char* serviceName, const char* regType,
                                    const char* domain, void* context) noexcept {
    const MDnsSdChannel::Context& request = contextOf(context);
    if (error != kDNSServiceErr_NoError) {
        broadcastError(request, kMDnsDiscoverFailed, error);
        request.mListener->onDiscoverResult(kMDnsDiscoverFailed, nullptr, nullptr, nullptr);
        MDNS_LOGE("discover failure for %d, error= %d", request.mRequestId, error);
        return;
    }
    const bool found = (flags & kDNSServiceFlagsAdd) != 0;
    const Text name = quoted(serviceName);
    MDNS_LOGD("Discover %s serviceName %s, regType %s and domain %s for %d",
              found ? "found new" : "lost", serviceName, regType, domain, request.mRequestId);
    broadcast(request, found ? kMDnsServiceFound : kMDnsServiceLost,
              Line("%d %s %s %s", request.mRequestId, printable(name.get()), regType, domain));
    request.mListener->onDiscoverResult(0, serviceName, regType, domain);
}

void MDnsSdListenerRegisterCallback(DNSServiceRef /*ref*/, DNSServiceFlags /*flags*/,
                                    DNSServiceErrorType error, const char* serviceName,
                                    const char* regType, const char* domain,
                                    void* context) noexcept {
    const MDnsSdChannel::Context& request = contextOf(context);
    if (error != kDNSServiceErr_NoError) {
        broadcastError(request, kMDnsRegisterFailed, error);
        request.mListener->onRegisterResult(kMDnsRegisterFailed, nullptr, nullptr, nullptr);
        MDNS_LOGE("register failure for %d, error= %d", request.mRequestId, error);
        return;
    }
    const Text name = quoted(serviceName);
    broadcast(request, kMDnsRegistered, Line("%d %s", request.mRequestId, printable(name.get())));
    request.mListener->onRegisterResult(0, serviceName, regType, domain);
    MDNS_LOGD("register succeeded for %d as %s", request.mRequestId, serviceName);
}

void MDnsSdListenerResolveCallback(DNSServiceRef /*ref*/, DNSServiceFlags /*flags*/,
                                   uint32_t /*interfaceIndex*/, DNSServiceErrorType error,
                                   const char* fullName, const char* hostTarget, uint16_t port,
                                   uint16_t txtLen, const unsigned char* txtRecord,
                                   void* context) noexcept {
    const MDnsSdChannel::Context& request = contextOf(context);
    if (error != kDNSServiceErr_NoError) {
        broadcastError(request, kMDnsResolveFailed, error);
        request.mListener->onResolveResult(kMDnsResolveFailed, nullptr, nullptr, 0, 0, nullptr);
        MDNS_LOGE("resolve failure for %d, error= %d", request.mRequestId, error);
        return;
    }
    const int hostPort = ntohs(port);
    const Text name = quoted(fullName);
    const Text host = quoted(hostTarget);
    const size_t size = (((4U * txtLen + 2U) / 3U + 3U) & ~size_t{3}) + 1U;
    const Text base64(static_cast<char*>(malloc(size)));
    const bool encoded =
        base64 != nullptr && __b64_ntop(txtRecord, txtLen, base64.get(), size) >= 0;
    broadcast(request, kMDnsResolved,
              Line("%d %s %s %d %d \"%s\"", request.mRequestId, printable(name.get()),
                   printable(host.get()), hostPort, txtLen, encoded ? base64.get() : ""));
    request.mListener->onResolveResult(0, fullName, hostTarget, hostPort, txtLen, txtRecord);
    MDNS_LOGD("resolve succeeded for %d finding %s at %s:%d with txtLen %d", request.mRequestId,
              fullName, hostTarget, hostPort, txtLen);
}

void MDnsSdListenerGetAddrInfoCallback(DNSServiceRef /*ref*/, DNSServiceFlags /*flags*/,
                                       uint32_t /*interfaceIndex*/, DNSServiceErrorType error,
                                       const char* hostname, const struct sockaddr* address,
                                       uint32_t timeToLive, void* context) noexcept {
    const MDnsSdChannel::Context& request = contextOf(context);
    if (error != kDNSServiceErr_NoError) {
        broadcastError(request, kMDnsGetAddrInfoFailed, error);
        request.mListener->onGetAddrResult(kMDnsGetAddrInfoFailed, nullptr, nullptr);
        MDNS_LOGE("getAddrInfo failure for %d, error= %d", request.mRequestId, error);
        return;
    }
    char addressText[INET6_ADDRSTRLEN] = "";
    const Text host = quoted(hostname);
    const void* const bytes =
        address->sa_family == AF_INET
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(address)->sin_addr)
            : static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
    inet_ntop(address->sa_family, bytes, addressText, sizeof addressText);
    const Line line("%d %s %d %s", request.mRequestId, printable(host.get()),
                    static_cast<int>(timeToLive), addressText);
    broadcast(request, kMDnsAddressFound, line);
    request.mListener->onGetAddrResult(0, hostname, addressText);
    MDNS_LOGD("getAddrInfo succeeded for %d: %s", request.mRequestId, printable(line.text()));
}

void MDnsSdListenerSetHostnameCallback(DNSServiceRef /*ref*/, DNSServiceFlags /*flags*/,
                                       DNSServiceErrorType error, const char* hostname,
                                       void* context) noexcept {
    const MDnsSdChannel::Context& request = contextOf(context);
    if (error != kDNSServiceErr_NoError) {
        broadcastError(request, kMDnsHostnameFailed, error);
        MDNS_LOGE("setHostname failure for %d, error= %d", request.mRequestId, error);
        return;
    }
    const Text name = quoted(hostname);
    broadcast(request, kMDnsHostnameSet, Line("%d %s", request.mRequestId, printable(name.get())));
    MDNS_LOGD("setHostname succeeded for %d.  Set to %s", request.mRequestId, hostname);
}
