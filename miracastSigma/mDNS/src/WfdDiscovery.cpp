// The exported discovery functions over the one object of the process.
#include "WfdDiscovery.h"

#include <atomic>

#include "WFDmDns.h"

namespace {

// Set and cleared by the command thread; a discovery callback, on the monitor thread, reads it.
std::atomic<WFDmDns*> gWFDmDns{nullptr};

WFDmDns& madeInstance() {
    if (gWFDmDns == nullptr) gWFDmDns = new WFDmDns;
    return *gWFDmDns;
}

}  // namespace

void mDnsClearInstances() {
    // A callback that runs meanwhile still finds the object, which waits for it.
    delete gWFDmDns.load();
    gWFDmDns = nullptr;
}

int mDnsRegisterWfdSink(int deviceSinkType, MDnsRegisterCallback callback) {
    return madeInstance().registerSink(deviceSinkType, callback);
}

int mDnsRegisterWfdSource(const char* name, int port, MDnsRegisterCallback callback) {
    return madeInstance().registerSource(name == nullptr ? "" : name, port, callback);
}

int mDnsUnregisterWfd() { return madeInstance().unregister(); }

int mDnsDiscoverWfd(int deviceTypes, MDnsDiscoverCallback callback) {
    return madeInstance().discover(deviceTypes, callback);
}

int mDnsStopWfdDiscovery() {
    WFDmDns* const instance = gWFDmDns;
    return instance == nullptr ? -1 : instance->stopDiscovery();
}

int mDnsResolveWfd(const MDnsWfdServiceInfo* info, MDnsRegisterCallback callback) {
    WFDmDns* const instance = gWFDmDns;
    return instance == nullptr || info == nullptr ? -1 : instance->resolve(*info, callback);
}

int setTriggerCallback(TriggerCallback callback) {
    return madeInstance().setTriggerCallback(callback);
}

int triggerSinkConnect(const MDnsWfdServiceInfo* peer, const char* localAddress, int localPort) {
    WFDmDns* const instance = gWFDmDns;
    if (instance == nullptr || peer == nullptr) return -1;
    return instance->triggerSinkConnect(*peer, localAddress == nullptr ? "" : localAddress,
                                        localPort);
}
