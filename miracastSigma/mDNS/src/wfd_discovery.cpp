#include "wfd_discovery.h"

#include <atomic>
#include <new>

#include "WFDmDns.h"
#include "wfd_log.h"

namespace {

// Set and cleared by the command thread, read by the monitor thread in callbacks.
std::atomic<WFDmDns*> gWFDmDns{nullptr};

WFDmDns* existing(const char* function) {
    WFDmDns* const instance = gWFDmDns;
    if (instance == nullptr) WFD_LOGE("%s: no discovery object", function);
    return instance;
}

WFDmDns* existingOrNew(const char* function) {
    if (gWFDmDns == nullptr) gWFDmDns = new (std::nothrow) WFDmDns;
    return existing(function);
}

bool isRecord(const MDnsWfdServiceInfo* info, const char* function) {
    if (info == nullptr) WFD_LOGE("%s: no record", function);
    return info != nullptr;
}

}  // namespace

void mDnsClearInstances() noexcept {
    // Clear the pointer after the destruction: callbacks use the object while the destructor waits
    // for them.
    delete gWFDmDns.load();
    gWFDmDns = nullptr;
}

int mDnsRegisterWfdSink(int deviceSinkType, MDnsRegisterCallback callback) noexcept {
    WFDmDns* const instance = existingOrNew(__func__);
    return instance == nullptr ? -1 : instance->registerSink(deviceSinkType, callback);
}

int mDnsRegisterWfdSource(const char* /*name*/, int port, MDnsRegisterCallback callback) noexcept {
    WFDmDns* const instance = existingOrNew(__func__);
    return instance == nullptr ? -1 : instance->registerSource({}, port, callback);
}

int mDnsUnregisterWfd() noexcept {
    WFDmDns* const instance = existingOrNew(__func__);
    return instance == nullptr ? -1 : instance->unregister();
}

int mDnsDiscoverWfd(int deviceTypes, MDnsDiscoverCallback callback) noexcept {
    WFDmDns* const instance = existingOrNew(__func__);
    return instance == nullptr ? -1 : instance->discover(deviceTypes, callback);
}

int mDnsStopWfdDiscovery() noexcept {
    WFDmDns* const instance = existing(__func__);
    return instance == nullptr ? -1 : instance->stopDiscovery();
}

int mDnsResolveWfd(const MDnsWfdServiceInfo* info, MDnsRegisterCallback callback) noexcept {
    WFDmDns* const instance = existing(__func__);
    if (instance == nullptr || !isRecord(info, __func__)) return -1;
    return instance->resolve(*info, callback);
}

int setTriggerCallback(TriggerCallback callback) noexcept {
    WFDmDns* const instance = existingOrNew(__func__);
    return instance == nullptr ? -1 : instance->setTriggerCallback(callback);
}

int triggerSinkConnect(const MDnsWfdServiceInfo* peer, const char* /*localAddress*/,
                       int localPort) noexcept {
    WFDmDns* const instance = existing(__func__);
    if (instance == nullptr || !isRecord(peer, __func__)) return -1;
    return instance->triggerSinkConnect(*peer, {}, localPort);
}
