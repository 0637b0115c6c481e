#include "WFDmDns.h"

#include <cstdio>
#include <exception>
#include <vector>

#include "WFDTriggerTcpClient.h"
#include "android/log.h"
#include "bounded_copy.h"
#include "wfd_services.h"

namespace {

#define WFD_LOGV(...) __android_log_print(ANDROID_LOG_VERBOSE, "WFDmDns", __VA_ARGS__)
#define WFD_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, "WFDmDns", __VA_ARGS__)

// The platform's assertion would end the agent's process; this says the same and goes on.
#define HOLDS(expression) holds(static_cast<bool>(expression), #expression, __func__)

bool holds(bool condition, const char* expression, const char* function) {
    if (!condition) {
        WFD_LOGE("miracastSigma/mDNS/src/WFDmDns: %s: assertion \"%s\" failed", function,
                 expression);
    }
    return condition;
}

const char* orEmpty(const char* text) { return text == nullptr ? "" : text; }

// Tells a callback, if there is one, of a registered or discovered service.
void report(void (*callback)(int, const MDnsWfdServiceInfo*), int code, const char* serviceName,
            const char* regType, const char* domain) {
    if (callback == nullptr) return;
    MDnsWfdServiceInfo info{};
    copyText(info.serviceName, serviceName);
    copyText(info.regType, regType);
    copyText(info.domain, domain);
    callback(code, code == 0 ? &info : nullptr);
}

// In the order in which they are browsed.
constexpr int kDeviceTypes[] = {WFD_R2_SOURCE, WFD_R2_PRIMARY_SINK, WFD_R2_SECONDARY_SINK};

}  // namespace

WFDmDns::WFDmDns() = default;

WFDmDns::~WFDmDns() {
    if (mRegisterCallback != nullptr) unregister();
    if (mDiscoverCallback != nullptr) stopDiscovery();
    bool resolving = false;
    {
        const std::lock_guard lock(mResolveLock);
        resolving = mResolveCallback != nullptr;
    }
    if (resolving) {
        runCommand({nextSequence(), "stop-resolve", kResolveRequestId});
        const std::lock_guard lock(mResolveLock);
        mResolveCallback = nullptr;
    }
    if (mAddressQueried) runCommand({nextSequence(), "stop-getaddrinfo", kGetAddrInfoRequestId});
    stopService();
}

std::string WFDmDns::nextSequence() { return std::to_string(++mCommandSeq); }

int WFDmDns::runCommand(std::initializer_list<std::string> args) {
    std::vector<std::string> copies(args);
    const int argc = static_cast<int>(copies.size());
    std::string line;
    std::vector<char*> argv;
    for (std::string& copy : copies) {
        line += copy + ' ';
        argv.push_back(copy.data());
    }
    WFD_LOGV("runCommand %d: %s", argc, line.c_str());
    for (int i = 0; i < argc; ++i) {
        WFD_LOGV("runCommand argv[%d] = %s", i, argv[static_cast<size_t>(i)]);
    }
    return mChannel.runCommand(argc, argv.data());
}

int WFDmDns::sendMsg(int code, const char* message, bool flag) {
    mLastResult = code;
    WFD_LOGV("sendMsg %d %s %d", code, orEmpty(message), flag ? 1 : 0);
    return 0;
}

int WFDmDns::sendBroadcast(int code, const char* message, bool flag) {
    WFD_LOGV("sendBroadcast %d %s %d", code, orEmpty(message), flag ? 1 : 0);
    return 0;
}

int WFDmDns::startService() {
    runCommand({nextSequence(), "start-service"});
    WFD_LOGV("startService result %d", mLastResult.load());
    return 0;
}

int WFDmDns::stopService() {
    runCommand({nextSequence(), "stop-service"});
    WFD_LOGV("stopService result %d", mLastResult.load());
    return 0;
}

bool WFDmDns::makeTriggerServer() {
    // They outlive the objects that made them.
    static auto* const servers = new std::vector<WFDTriggerTcpServer*>;
    if (mTriggerServer != nullptr) return true;
    try {
        mTriggerServer = new WFDTriggerTcpServer;
        servers->push_back(mTriggerServer);
    } catch (const std::exception& error) {
        WFD_LOGE("no trigger server: %s", error.what());
    }
    return mTriggerServer != nullptr;
}

int WFDmDns::registerService(const WfdServiceConsts& service, int port) {
    runCommand({nextSequence(), "register", kRegisterRequestId, service.name, service.regType,
                std::to_string(port), ""});
    return mLastResult;
}

int WFDmDns::registerSink(int deviceSinkType, MDnsRegisterCallback callback) {
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

int WFDmDns::registerSource(const std::string& /*name*/, int port, MDnsRegisterCallback callback) {
    if (!HOLDS(callback != nullptr)) return -1;
    mMyDeviceType = WFD_R2_SOURCE;
    startService();
    mRegisterCallback = callback;
    return registerService(kWfdSource, port);
}

int WFDmDns::unregister() {
    if (mRegisterCallback == nullptr) return -1;
    runCommand({nextSequence(), "stop-register", kRegisterRequestId});
    const int result = mLastResult;
    mRegisterCallback = nullptr;
    return result;
}

void WFDmDns::onRegisterResult(int code, const char* serviceName, const char* regType,
                               const char* domain) {
    printf("onRegisterResult %s, %s, %s\n", orEmpty(serviceName), orEmpty(regType),
           orEmpty(domain));
    report(mRegisterCallback, code, serviceName, regType, domain);
}

int WFDmDns::discover(int deviceTypes, MDnsDiscoverCallback callback) {
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
    for (const int type : kDeviceTypes) {
        if ((deviceTypes & type) == 0) continue;
        const int result = discoverAType(type);
        WFD_LOGV("discover a type %d, result %d", type, result);
    }
    return mLastResult;
}

int WFDmDns::discoverAType(int type) {
    const WfdServiceConsts& service = wfdServiceOf(type);
    runCommand({nextSequence(), "discover", std::to_string(service.requestId), service.regType});
    return mLastResult;
}

int WFDmDns::stopDiscoverAType(int type) {
    runCommand({nextSequence(), "stop-discover", std::to_string(wfdServiceOf(type).requestId)});
    return mLastResult;
}

int WFDmDns::stopDiscovery() {
    if (!HOLDS(mDiscoverCallback != nullptr)) return -1;
    for (const int type : kDeviceTypes) {
        if ((mDiscoverTypes & type) == 0) continue;
        const int result = stopDiscoverAType(type);
        WFD_LOGV("stop discover a type %d, result %d", type, result);
    }
    mDiscoverTypes = 0;
    return mLastResult;
}

void WFDmDns::onDiscoverResult(int code, const char* serviceName, const char* regType,
                               const char* domain) {
    report(mDiscoverCallback, code, serviceName, regType, domain);
}

int WFDmDns::resolve(const MDnsWfdServiceInfo& info, MDnsRegisterCallback callback) {
    if (!HOLDS(callback != nullptr)) return -1;
    // `info` may be the held record itself, which goes here.
    const auto copy = std::make_shared<MDnsWfdServiceInfo>(info);
    {
        const std::lock_guard lock(mResolveLock);
        mResolveCallback = callback;
        mResolvingInfo = copy;
    }
    runCommand({nextSequence(), "resolve", kResolveRequestId, copy->serviceName, copy->regType,
                copy->domain});
    return mLastResult;
}

void WFDmDns::onResolveResult(int code, const char* /*fullName*/, const char* hostTarget, int port,
                              int /*txtLen*/, const unsigned char* /*txtRecord*/) {
    runCommand({nextSequence(), "stop-resolve", kResolveRequestId});
    if (code != 0) {
        MDnsRegisterCallback callback = nullptr;
        std::shared_ptr<MDnsWfdServiceInfo> failed;
        {
            const std::lock_guard lock(mResolveLock);
            callback = mResolveCallback;
            failed = mResolvingInfo;
        }
        if (callback != nullptr) callback(code, nullptr);
        const std::lock_guard lock(mResolveLock);
        if (mResolvingInfo != failed) return;  // another resolution has begun
        mResolvingInfo.reset();
        mResolveCallback = nullptr;
        return;
    }
    {
        const std::lock_guard lock(mResolveLock);
        if (!HOLDS(mResolveCallback) || !HOLDS(mResolvingInfo)) return;
        mResolvingInfo->port = port;
    }
    mAddressQueried = true;
    runCommand({nextSequence(), "getaddrinfo", kGetAddrInfoRequestId, orEmpty(hostTarget)});
}

void WFDmDns::onGetAddrResult(int code, const char* /*hostname*/, const char* address) {
    MDnsRegisterCallback callback = nullptr;
    std::shared_ptr<MDnsWfdServiceInfo> info;
    {
        const std::lock_guard lock(mResolveLock);
        if (!HOLDS(mResolveCallback) || !HOLDS(mResolvingInfo)) return;
        callback = mResolveCallback;
        if (code == 0) {
            copyText(mResolvingInfo->ipAddress, address);
            info = mResolvingInfo;
        }
    }
    callback(code, info.get());
}

int WFDmDns::setTriggerCallback(TriggerCallback callback) {
    if (!HOLDS(mMyDeviceType == WFD_R2_PRIMARY_SINK || mMyDeviceType == WFD_R2_SECONDARY_SINK ||
               mMyDeviceType == 0) ||
        !HOLDS(callback)) {
        return -1;
    }
    if (!makeTriggerServer()) return -1;
    mTriggerCallback = callback;
    mTriggerServer->setCallback(callback);
    return 0;
}

int WFDmDns::triggerSinkConnect(const MDnsWfdServiceInfo& peer, const std::string& localAddress,
                                int localPort) {
    if (!HOLDS(mMyDeviceType == WFD_R2_SOURCE || mMyDeviceType == 0)) return -1;
    WFDTriggerTcpClient client(peer.ipAddress, peer.port);
    client.retrytcpconnect(peer.port);
    client.trigger(localAddress, localPort);
    return 0;
}
