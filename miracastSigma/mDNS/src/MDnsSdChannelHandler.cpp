#include "MDnsSdChannelHandler.h"

#include <dns_sd.h>
#include <netinet/in.h>
#include <resolv.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>

#include "MDnsSdChannelMonitor.h"
#include "SigpipeBlock.h"
#include "c_text.h"
#include "mdns_callbacks.h"
#include "mdns_log.h"

namespace {

constexpr int kLargestTxtRecord = 1300;
constexpr DNSServiceFlags kNoFlags = 0;
constexpr uint32_t kAnyInterface = 0;

void reply(MDnsResultListener* listener, int code, const char* text) {
    listener->sendMsg(code, text, false);
}

}  // namespace

// The texts of one operation. Logged when the id is in use: "ID N already in use during OPERATION
// call"; the reply has the operation, too. Logged on an error: "REQUEST N got an error from CALL
// ERROR".
struct MDnsSdChannel::Handler::StartTexts {
    const char* id;
    const char* operation;
    const char* request;
    const char* call;
    const char* errorReply;
    const char* successLog;
    const char* startedReply;
};

MDnsSdChannel::Handler::Handler(Monitor* monitor, MDnsSdChannel* channel) noexcept
    : mChannel(channel), mMonitor(monitor) {
    MDNS_LOGD("MDnsSdChannel::Hander starting up");
}

MDnsSdChannel::Handler::~Handler() = default;

int MDnsSdChannel::Handler::runCommand(MDnsResultListener* listener, int argc,
                                       char** argv) noexcept {
    if (argc < 2) {
        char text[64];
        snprintf(text, sizeof text, "Invalid number of arguments to mdnssd: %i", argc);
        MDNS_LOGW("%s", text);
        reply(listener, kMDnsRefused, text);
        return -1;
    }
    if (mMonitor == nullptr || !mMonitor->isRunning()) {
        reply(listener, kMDnsRefused, kMonitorNotRunning);
        return 0;
    }
    const std::string_view word = argv[1];
    const auto hasArguments = [&](int count) {
        if (argc == count) return true;
        char text[64];
        snprintf(text, sizeof text, "Invalid number of arguments to mdnssd %s", argv[1]);
        reply(listener, kMDnsRefused, text);
        return false;
    };
    if (word == "discover") {
        if (hasArguments(4)) discover(listener, nullptr, argv[3], nullptr, atoi(argv[2]), 0);
    } else if (word == "stop-discover") {
        stop(listener, argc, argv, "discover");
    } else if (word == "register") {
        if (hasArguments(7)) registerFromText(listener, argv);
    } else if (word == "stop-register") {
        stop(listener, argc, argv, "register");
    } else if (word == "resolve") {
        if (hasArguments(6)) {
            resolveService(listener, atoi(argv[2]), nullptr, argv[3], argv[4], argv[5]);
        }
    } else if (word == "stop-resolve") {
        stop(listener, argc, argv, "resolve");
    } else if (word == "start-service") {
        if (mMonitor->startService() != 0) {
            reply(listener, kMDnsDone, "Service Started");
        } else {
            reply(listener, kMDnsServiceRunning, "Service already running");
        }
    } else if (word == "stop-service") {
        if (mMonitor->stopService() != 0) {
            reply(listener, kMDnsDone, "Service Stopped");
        } else {
            reply(listener, kMDnsServiceInUse, "Service still in use");
        }
    } else if (word == "sethostname") {
        if (hasArguments(4)) setHostname(listener, atoi(argv[2]), argv[3]);
    } else if (word == "stop-sethostname") {
        stop(listener, argc, argv, "sethostname");
    } else if (word == "getaddrinfo") {
        if (hasArguments(4)) getAddrInfo(listener, atoi(argv[2]), nullptr, 0, argv[3]);
    } else if (word == "stop-getaddrinfo") {
        stop(listener, argc, argv, "getaddrinfo");
    } else {
        MDNS_LOGE("Unknown cmd %s", argv[1]);
        reply(listener, kMDnsUnknownCommand, "Unknown mdnssd cmd");
    }
    return 0;
}

void MDnsSdChannel::Handler::registerFromText(MDnsResultListener* listener, char** argv) {
    const int requestId = atoi(argv[2]);
    const int port = atoi(argv[5]);
    // One byte more: some decoders write one byte past the end of a last group that holds one byte.
    unsigned char txtRecord[kLargestTxtRecord + 1] = {};
    const int length = __b64_pton(argv[6], txtRecord, sizeof txtRecord);
    if (length < 0 || length > kLargestTxtRecord) {
        reply(listener, kMDnsRefused, "Could not decode txtRecord");
        return;
    }
    serviceRegister(listener, requestId, nullptr, argv[3], argv[4], nullptr, nullptr, port, length,
                    txtRecord);
}

template <typename Call>
void MDnsSdChannel::Handler::start(MDnsResultListener* listener, int requestId,
                                   const StartTexts& texts, Call call) {
    errno = ENOMEM;
    auto* const context = new (std::nothrow) Context(mChannel->mListener, mChannel, requestId);
    DNSServiceRef* const ref =
        context == nullptr ? nullptr : mMonitor->allocateServiceRef(requestId, context);
    if (ref == nullptr && errno == ENOMEM) {
        MDNS_LOGE("No memory for request %d", requestId);
        reply(listener, kMDnsRefused, "No memory for the request");
        return;
    }
    if (ref == nullptr) {
        MDNS_LOGE("%s %d already in use during %s call", texts.id, requestId, texts.operation);
        char text[64];
        snprintf(text, sizeof text, "RequestId already in use during %s call", texts.operation);
        reply(listener, kMDnsRefused, text);
        return;
    }
    DNSServiceErrorType error = kDNSServiceErr_NoError;
    {
        const SigpipeBlock noSigpipe;
        error = call(ref, context);
    }
    if (error != kDNSServiceErr_NoError) {
        MDNS_LOGE("%s %d got an error from %s %d", texts.request, requestId, texts.call, error);
        mMonitor->freeServiceRef(requestId);
        reply(listener, kMDnsRefused, texts.errorReply);
        return;
    }
    mMonitor->startMonitoring(requestId);
    MDNS_LOGD("%s", texts.successLog);
    reply(listener, kMDnsDone, texts.startedReply);
}

void MDnsSdChannel::Handler::discover(MDnsResultListener* listener, const char* interfaceName,
                                      const char* regType, const char* domain, int requestId,
                                      int requestFlags) noexcept {
    MDNS_LOGD("discover(%s, %s, %s, %d, %d)", printable(interfaceName), regType, printable(domain),
              requestId, requestFlags);
    static constexpr StartTexts kTexts = {
        "requestId",
        "discover",
        "Discover request",
        "DNSServiceBrowse",
        "Discover request got an error from DNSServiceBrowse",
        "discover successful",
        "Discover operation started",
    };
    start(listener, requestId, kTexts, [&](DNSServiceRef* ref, Context* context) {
        MDNS_LOGD("using ref %p", static_cast<void*>(ref));
        return DNSServiceBrowse(ref, kNoFlags, kAnyInterface, regType, domain,
                                MDnsSdListenerDiscoverCallback, context);
    });
}

void MDnsSdChannel::Handler::serviceRegister(MDnsResultListener* listener, int requestId,
                                             const char* interfaceName, const char* serviceName,
                                             const char* serviceType, const char* domain,
                                             const char* host, int port, int txtLen,
                                             void* txtRecord) noexcept {
    MDNS_LOGD("serviceRegister(%d, %s, %s, %s, %s, %s, %d, %d, <binary>)", requestId,
              printable(interfaceName), serviceName, serviceType, printable(domain),
              printable(host), port, txtLen);
    static constexpr StartTexts kTexts = {
        "requestId",
        "register",
        "service register request",
        "DNSServiceRegister",
        "serviceRegister request got an error from DNSServiceRegister",
        "serviceRegister successful",
        "serviceRegister started",
    };
    start(listener, requestId, kTexts, [&](DNSServiceRef* ref, Context* context) {
        return DNSServiceRegister(ref, kNoFlags, kAnyInterface, serviceName, serviceType, domain,
                                  host, htons(static_cast<uint16_t>(port)),
                                  static_cast<uint16_t>(txtLen), txtRecord,
                                  MDnsSdListenerRegisterCallback, context);
    });
}

void MDnsSdChannel::Handler::resolveService(MDnsResultListener* listener, int requestId,
                                            const char* interfaceName, const char* serviceName,
                                            const char* regType, const char* domain) noexcept {
    MDNS_LOGD("resolveService(%d, %s, %s, %s, %s)", requestId, printable(interfaceName),
              serviceName, regType, domain);
    static constexpr StartTexts kTexts = {
        "request Id",
        "resolve",
        "service resolve request",
        "DNSServiceResolve",
        "resolveService got an error from DNSServiceResolve",
        "resolveService successful",
        "resolveService started",
    };
    start(listener, requestId, kTexts, [&](DNSServiceRef* ref, Context* context) {
        return DNSServiceResolve(ref, kNoFlags, kAnyInterface, serviceName, regType, domain,
                                 MDnsSdListenerResolveCallback, context);
    });
}

void MDnsSdChannel::Handler::getAddrInfo(MDnsResultListener* listener, int requestId,
                                         const char* interfaceName, uint32_t protocol,
                                         const char* hostname) noexcept {
    MDNS_LOGD("getAddrInfo(%d, %s %d, %s)", requestId, printable(interfaceName),
              static_cast<int>(protocol), hostname);
    static constexpr StartTexts kTexts = {
        "request ID",
        "getAddrInfo",
        "getAddrInfo request",
        "DNSServiceGetAddrInfo",
        "getAddrInfo request got an error from DNSServiceGetAddrInfo",
        "getAddrInfo successful",
        "getAddrInfo started",
    };
    start(listener, requestId, kTexts, [&](DNSServiceRef* ref, Context* context) {
        return DNSServiceGetAddrInfo(ref, kNoFlags, kAnyInterface, protocol, hostname,
                                     MDnsSdListenerGetAddrInfoCallback, context);
    });
}

void MDnsSdChannel::Handler::setHostname(MDnsResultListener* listener, int requestId,
                                         const char* hostname) noexcept {
    MDNS_LOGD("setHostname(%d, %s)", requestId, hostname);
    static constexpr StartTexts kTexts = {
        "request Id",
        "setHostname",
        "setHostname request",
        "DNSSetHostname",
        "setHostname got an error from DNSSetHostname",
        "setHostname successful",
        "setHostname started",
    };
    start(listener, requestId, kTexts, [&](DNSServiceRef* ref, Context* context) {
        return DNSSetHostname(ref, kNoFlags, hostname, MDnsSdListenerSetHostnameCallback, context);
    });
}

void MDnsSdChannel::Handler::stop(MDnsResultListener* listener, int argc, char** argv,
                                  const char* operation) noexcept {
    char text[64];
    if (argc != 3) {
        snprintf(text, sizeof text, "Invalid number of arguments to %s", operation);
        reply(listener, kMDnsRefused, text);
        return;
    }
    const int requestId = atoi(argv[2]);
    bool mustDeallocate = false;
    DNSServiceRef* const ref = mMonitor->closeServiceRef(requestId, &mustDeallocate);
    if (ref == nullptr) {
        MDNS_LOGE("%s stop used unknown requestId %d", operation, requestId);
        reply(listener, kMDnsRefused, "Unknown requestId");
        return;
    }
    MDNS_LOGD("Stopping %s with ref %p", operation, static_cast<void*>(ref));
    if (mustDeallocate) {
        {
            const SigpipeBlock noSigpipe;
            DNSServiceRefDeallocate(*ref);
        }
        mMonitor->freeServiceRef(requestId);
    }
    snprintf(text, sizeof text, "%s stopped", operation);
    reply(listener, kMDnsDone, text);
}

int MDnsSdChannel::Handler::iToFlags(int /*flags*/) noexcept { return 0; }

int MDnsSdChannel::Handler::ifaceNameToI(const char* /*interfaceName*/) noexcept { return 0; }

const char* MDnsSdChannel::Handler::iToIfaceName(int /*interfaceIndex*/) noexcept {
    return nullptr;
}

int MDnsSdChannel::Handler::flagsToI(uint32_t /*flags*/) noexcept { return 0; }
