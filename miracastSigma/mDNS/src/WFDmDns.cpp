#include "WFDmDns.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <new>
#include <utility>

#include "WFDTriggerTcpClient.h"
#include "c_text.h"
#include "wfd_log.h"
#include "wfd_services.h"

namespace {

using android::Mutex;

// Logs a broken precondition in the form of the platform's assertion, without ending the process.
#define HOLDS(expression) holds(static_cast<bool>(expression), #expression, __func__)

bool holds(bool condition, const char* expression, const char* function) {
    if (!condition) {
        WFD_LOGE("miracastSigma/mDNS/src/WFDmDns: %s: assertion \"%s\" failed", function,
                 expression);
    }
    return condition;
}

const char* orEmpty(const char* text) { return text == nullptr ? "" : text; }

// Reports a registered or discovered service to a callback, if there is one.
void report(void (*callback)(int, const MDnsWfdServiceInfo*), int code, const char* serviceName,
            const char* regType, const char* domain) {
    if (callback == nullptr) return;
    MDnsWfdServiceInfo info{};
    copyText(info.serviceName, serviceName);
    copyText(info.regType, regType);
    copyText(info.domain, domain);
    callback(code, code == 0 ? &info : nullptr);
}

// In browsing order.
constexpr int kDeviceTypes[] = {WFD_R2_SOURCE, WFD_R2_PRIMARY_SINK, WFD_R2_SECONDARY_SINK};

struct Decimal {
    explicit Decimal(int number) { snprintf(text, sizeof text, "%d", number); }
    char text[12];
};

// Trigger servers outlive the objects that make them. The list keeps them reachable.
struct KeptServer {
    WFDTriggerTcpServer server;
    KeptServer* earlier = nullptr;
};
KeptServer* newestServer = nullptr;  // belongs to the command thread

// Where sendMsg stores the answer to the command that this thread is giving; null between commands.
thread_local int* tAnswer = nullptr;

}  // namespace

WFDmDns::WFDmDns() noexcept = default;

WFDmDns::~WFDmDns() {
    {
        const Mutex::Autolock lock(mResolveLock);
        mEnding = true;
    }
    if (mRegisterCallback != nullptr) unregister();
    if (mDiscoverCallback != nullptr) stopDiscovery();
    bool resolving = false;
    {
        const Mutex::Autolock lock(mResolveLock);
        resolving = mResolveCallback != nullptr;
    }
    if (resolving) command("stop-resolve", kResolveRequestId);
    bool addressQueried = false;
    {
        const Mutex::Autolock lock(mResolveLock);
        mResolveCallback = nullptr;
        addressQueried = mAddressQueried;
    }
    if (addressQueried) command("stop-getaddrinfo", kGetAddrInfoRequestId);
    stopService();
    const Mutex::Autolock lock(mResolveLock);
    delete mResolvingInfo;
}

int WFDmDns::run(int argc, const char* const* argv) {
    char line[2048] = "";
    size_t length = 0;
    for (int i = 0; i < argc && length < sizeof line; ++i) {
        length +=
            static_cast<size_t>(snprintf(line + length, sizeof line - length, "%s ", argv[i]));
    }
    WFD_LOGV("runCommand %d: %s", argc, line);
    for (int i = 0; i < argc; ++i) WFD_LOGV("runCommand argv[%d] = %s", i, argv[i]);
    return mChannel.runCommand(argc, const_cast<char**>(argv));  // it does not modify the texts
}

template <typename... Words>
int WFDmDns::command(Words... words) {
    const Decimal sequence(++mCommandSeq);
    const char* const argv[] = {sequence.text, words...};
    int answer = 0;
    int* const outer = std::exchange(tAnswer, &answer);
    run(static_cast<int>(std::size(argv)), argv);
    tAnswer = outer;
    return answer;
}

int WFDmDns::runCommand(std::initializer_list<std::string> args) noexcept {
    const std::unique_ptr<const char*[]> argv(new (std::nothrow) const char*[args.size()]);
    if (argv == nullptr) {
        WFD_LOGE("No memory for a command");
        return -1;
    }
    std::transform(args.begin(), args.end(), argv.get(),
                   [](const std::string& arg) { return arg.c_str(); });
    return run(static_cast<int>(args.size()), argv.get());
}

int WFDmDns::sendMsg(int code, const char* message, bool flag) noexcept {
    mLastResult = code;
    if (tAnswer != nullptr) *tAnswer = code;
    WFD_LOGV("sendMsg %d %s %d", code, orEmpty(message), flag ? 1 : 0);
    return 0;
}

int WFDmDns::sendBroadcast(int code, const char* message, bool flag) noexcept {
    WFD_LOGV("sendBroadcast %d %s %d", code, orEmpty(message), flag ? 1 : 0);
    return 0;
}

int WFDmDns::startService() noexcept {
    WFD_LOGV("startService result %d", command("start-service"));
    return 0;
}

int WFDmDns::stopService() noexcept {
    WFD_LOGV("stopService result %d", command("stop-service"));
    return 0;
}

bool WFDmDns::makeTriggerServer() {
    if (mTriggerServer != nullptr) return true;
    std::unique_ptr<KeptServer> kept(new (std::nothrow) KeptServer);
    if (kept == nullptr || !kept->server.isRunning()) {
        WFD_LOGE("no trigger server");
        return false;
    }
    kept->earlier = std::exchange(newestServer, kept.get());
    mTriggerServer = &kept.release()->server;
    return true;
}

int WFDmDns::registerService(const WfdServiceConsts& service, int port) {
    return command("register", kRegisterRequestId, service.name, service.regType,
                   Decimal(port).text, "");
}

int WFDmDns::registerSink(int deviceSinkType, MDnsRegisterCallback callback) noexcept {
    if (!HOLDS(deviceSinkType == WFD_R2_PRIMARY_SINK || deviceSinkType == WFD_R2_SECONDARY_SINK) ||
        !HOLDS(callback != nullptr)) {
        return -1;
    }
    mMyDeviceType = deviceSinkType;
    startService();
    if (!makeTriggerServer()) return -1;
    mRegisterCallback = callback;
    const int port = mTriggerServer->getServerPort();
    WFD_LOGV("register sink, tcp port %d", port);
    return registerService(
        deviceSinkType == WFD_R2_SECONDARY_SINK ? kWfdSecondarySink : kWfdPrimarySink, port);
}

int WFDmDns::registerSource(const std::string& /*name*/, int port,
                            MDnsRegisterCallback callback) noexcept {
    if (!HOLDS(callback != nullptr)) return -1;
    mMyDeviceType = WFD_R2_SOURCE;
    startService();
    mRegisterCallback = callback;
    return registerService(kWfdSource, port);
}

int WFDmDns::unregister() noexcept {
    if (mRegisterCallback == nullptr) return -1;
    const int result = command("stop-register", kRegisterRequestId);
    mRegisterCallback = nullptr;
    return result;
}

void WFDmDns::onRegisterResult(int code, const char* serviceName, const char* regType,
                               const char* domain) noexcept {
    printf("onRegisterResult %s, %s, %s\n", orEmpty(serviceName), orEmpty(regType),
           orEmpty(domain));
    report(mRegisterCallback, code, serviceName, regType, domain);
}

int WFDmDns::discover(int deviceTypes, MDnsDiscoverCallback callback) noexcept {
    WFD_LOGV("discover types %d", deviceTypes);
    if (!HOLDS(deviceTypes == WFD_R2_SOURCE || deviceTypes == WFD_R2_PRIMARY_SINK ||
               deviceTypes == WFD_R2_SECONDARY_SINK ||
               deviceTypes == (WFD_R2_PRIMARY_SINK | WFD_R2_SECONDARY_SINK)) ||
        !HOLDS(callback != nullptr)) {
        return -1;
    }
    startService();
    mDiscoverCallback = callback;
    mDiscoverTypes |= deviceTypes;
    int result = 0;
    for (const int type : kDeviceTypes) {
        if ((deviceTypes & type) == 0) continue;
        result = discoverAType(type);
        WFD_LOGV("discover a type %d, result %d", type, result);
    }
    return result;
}

int WFDmDns::discoverAType(int type) noexcept {
    const WfdServiceConsts& service = wfdServiceOf(type);
    return command("discover", Decimal(service.requestId).text, service.regType);
}

int WFDmDns::stopDiscoverAType(int type) noexcept {
    return command("stop-discover", Decimal(wfdServiceOf(type).requestId).text);
}

int WFDmDns::stopDiscovery() noexcept {
    if (!HOLDS(mDiscoverCallback != nullptr)) return -1;
    int result = mLastResult;
    for (const int type : kDeviceTypes) {
        if ((mDiscoverTypes & type) == 0) continue;
        result = stopDiscoverAType(type);
        WFD_LOGV("stop discover a type %d, result %d", type, result);
    }
    mDiscoverTypes = 0;
    return result;
}

void WFDmDns::onDiscoverResult(int code, const char* serviceName, const char* regType,
                               const char* domain) noexcept {
    report(mDiscoverCallback, code, serviceName, regType, domain);
}

int WFDmDns::resolve(const MDnsWfdServiceInfo& info, MDnsRegisterCallback callback) noexcept {
    if (!HOLDS(callback != nullptr)) return -1;
    const MDnsWfdServiceInfo wanted = info;  // `info` may be mResolvingInfo, deleted below
    std::unique_ptr<MDnsWfdServiceInfo> copy(new (std::nothrow) MDnsWfdServiceInfo(wanted));
    if (copy == nullptr) {
        WFD_LOGE("resolve: no memory for the record");
        return -1;
    }
    {
        const Mutex::Autolock lock(mResolveLock);
        if (mEnding) {
            WFD_LOGE("resolve: the object is being destroyed");
            return -1;
        }
        mResolveCallback = callback;
        if (mResolvingInfo != mReported) delete mResolvingInfo;
        mResolvingInfo = copy.release();
    }
    const int result =
        command("resolve", kResolveRequestId, wanted.serviceName, wanted.regType, wanted.domain);
    {
        const Mutex::Autolock lock(mResolveLock);
        if (!mEnding) return result;
    }
    // The destructor has begun meanwhile; its "stop-resolve" may have come before this request.
    command("stop-resolve", kResolveRequestId);
    return -1;
}

void WFDmDns::onResolveResult(int code, const char* /*fullName*/, const char* hostTarget, int port,
                              int /*txtLen*/, const unsigned char* /*txtRecord*/) noexcept {
    command("stop-resolve", kResolveRequestId);
    if (code != 0) {
        MDnsRegisterCallback callback = nullptr;
        {
            const Mutex::Autolock lock(mResolveLock);
            callback = mResolveCallback;
            mReported = mResolvingInfo;
        }
        if (callback != nullptr) callback(code, nullptr);
        // The destructor does not wait for this result when it finds no callback: touch no member
        // after this block.
        const Mutex::Autolock lock(mResolveLock);
        const std::unique_ptr<MDnsWfdServiceInfo> failed(std::exchange(mReported, nullptr));
        if (mResolvingInfo != failed.get()) return;  // another resolution has begun
        mResolvingInfo = nullptr;
        mResolveCallback = nullptr;
        return;
    }
    {
        const Mutex::Autolock lock(mResolveLock);
        if (mEnding || !HOLDS(mResolveCallback) || !HOLDS(mResolvingInfo)) return;
        mResolvingInfo->port = port;
        mAddressQueried = true;
    }
    command("getaddrinfo", kGetAddrInfoRequestId, orEmpty(hostTarget));
}

void WFDmDns::onGetAddrResult(int code, const char* /*hostname*/, const char* address) noexcept {
    MDnsRegisterCallback callback = nullptr;
    MDnsWfdServiceInfo* info = nullptr;
    {
        const Mutex::Autolock lock(mResolveLock);
        if (!HOLDS(mResolveCallback) || !HOLDS(mResolvingInfo)) return;
        callback = mResolveCallback;
        if (code == 0) {
            copyText(mResolvingInfo->ipAddress, address);
            info = mResolvingInfo;
            mReported = info;
        }
    }
    callback(code, info);
    const Mutex::Autolock lock(mResolveLock);
    mReported = nullptr;
    if (info != mResolvingInfo) delete info;
}

int WFDmDns::setTriggerCallback(TriggerCallback callback) noexcept {
    if (!HOLDS(mMyDeviceType == WFD_R2_PRIMARY_SINK || mMyDeviceType == WFD_R2_SECONDARY_SINK ||
               mMyDeviceType == 0) ||
        !HOLDS(callback)) {
        return -1;
    }
    if (!makeTriggerServer()) return -1;
    mTriggerServer->setCallback(callback);
    return 0;
}

int WFDmDns::triggerSinkConnect(const MDnsWfdServiceInfo& peer, const std::string& localAddress,
                                int localPort) noexcept {
    if (!HOLDS(mMyDeviceType == WFD_R2_SOURCE || mMyDeviceType == 0)) return -1;
    WFDTriggerTcpClient client(peer.ipAddress, peer.port);
    client.retrytcpconnect(peer.port);
    client.trigger(localAddress, localPort);
    return 0;
}
