#include "discovery.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include "WfdDiscovery.h"
#include "bounded_copy.h"
#include "miracast_sigma.h"
#include "osal/osal.h"
#include "session_start.h"
#include "sigma_log.h"

namespace {

constexpr uint32_t kPollIntervalMs = 1000;
constexpr int kNamePolls = 10;
constexpr int kResolvePolls = 60;
constexpr uint32_t kSinkDiscoveryMs = 20000;
// Longer texts are IPv6 addresses.
constexpr size_t kMaxIpv4Text = 15;

// instanceName and actualvalues are plain memory. The monitor thread fills them and the command
// thread polls and copies them, both with this lock, held for the copy alone.
std::mutex resultLock;

// Set by the monitor thread, cleared and polled by the command thread.
std::atomic<bool> mdns_discover_done{false};
std::atomic<bool> mdns_resolve_done{false};  // set once actualvalues is complete

void setInstanceName(const char* name) {
    const std::lock_guard lock(resultLock);
    copyText(instanceName, name);
}

MDnsWfdServiceInfo resolvedPeer() {
    const std::lock_guard lock(resultLock);
    return actualvalues;
}

void onRegistered(const char* what, int result, const MDnsWfdServiceInfo* info) {
    if (result != 0) {
        SIGMA_LOG("Failed to register %s\n", what);
        return;
    }
    SIGMA_LOG("Succeeded to register %s: %s %s %s\n", what, info->serviceName, info->regType,
              info->domain);
    setInstanceName(info->serviceName);
}

void registerSourceCallback(int result, const MDnsWfdServiceInfo* info) {
    onRegistered("source service", result, info);
}

void registerCallback(int result, const MDnsWfdServiceInfo* info) {
    onRegistered("service", result, info);
}

void triggerCallback(const char* peerAddress, int port) {
    SIGMA_LOG("being triggered %s %d\n", peerAddress, port);
    startWfdConnectionImpl(nullptr, peerAddress, port, counterpartOf(wfd_device_type), nullptr,
                           nullptr);
}

void resolveCallback(int result, const MDnsWfdServiceInfo* info) {
    if (result != 0) {
        SIGMA_LOG("Failed to resolve service\n");
        return;
    }
    SIGMA_LOG("Succeeded to resolve service: %s %s %s %s %d\n", info->serviceName, info->regType,
              info->domain, info->ipAddress, info->port);
    if (strlen(info->ipAddress) > kMaxIpv4Text) {
        SIGMA_LOG("ignore ipv6 address");
        return;
    }
    {
        const std::lock_guard lock(resultLock);
        actualvalues = *info;
    }
    mdns_resolve_done.store(true, std::memory_order_release);
}

void discoverCallback(int result, const MDnsWfdServiceInfo* info) {
    if (result != 0) {
        SIGMA_LOG("Failed to discover\n");
        return;
    }
    SIGMA_LOG("discover a service : %s %s\n", info->serviceName, info->regType);
    if (mdns_discover_done) {
        SIGMA_LOG("already discovered a service, don't resolve this one\n");
        return;
    }
    mdns_discover_done = true;
    mDnsResolveWfd(info, resolveCallback);
}

bool peerResolved() { return mdns_resolve_done.load(std::memory_order_acquire); }

// Whether a peer has been resolved within the time; what comes in the last second comes too late.
bool waitResolved() {
    if (peerResolved()) return true;
    for (int poll = 1; poll < kResolvePolls; ++poll) {
        osal_sleep_ms(kPollIntervalMs);
        if (peerResolved()) return true;
    }
    osal_sleep_ms(kPollIntervalMs);
    return false;
}

}  // namespace

std::string registeredInstanceName() {
    const std::lock_guard lock(resultLock);
    return instanceName;
}

void resetmDNSParams() {
    setInstanceName("");
    mDnsClearInstances();
    setInstanceName("");  // the old registration may have reported in between
}

int registerSource() {
    SIGMA_LOG("Start register source, wait 20 seconds\n");
    mDnsUnregisterWfd();
    mDnsRegisterWfdSource(nullptr, kRtspControlPort, registerSourceCallback);
    SIGMA_LOG("End\n");
    return 0;
}

int registerPrimarySink() {
    SIGMA_LOG("Start register primary sink, wait 20 seconds\n");
    mDnsUnregisterWfd();
    setTriggerCallback(triggerCallback);
    mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, registerCallback);
    SIGMA_LOG("End\n");
    return 0;
}

char* getInstanceName() {
    for (int poll = 0; poll < kNamePolls && registeredInstanceName().empty(); ++poll) {
        SIGMA_LOG("Received service name %s \n", "");
        osal_sleep_ms(kPollIntervalMs);
    }
    return instanceName;
}

int discovermDNSPeer(int deviceType) {
    mdns_discover_done = false;
    mdns_resolve_done = false;
    SIGMA_LOG("Start discovery of mdns peer\n");
    mDnsDiscoverWfd(deviceType != 0 ? WFD_R2_SOURCE : WFD_R2_PRIMARY_SINK, discoverCallback);
    SIGMA_LOG("End\n");
    return 0;
}

int waitforDiscovery() {
    const int result = waitResolved() ? 0 : -1;
    mDnsStopWfdDiscovery();
    return result;
}

int getmDNSPeerIPandPort(char* address, int size, int* port) {
    const MDnsWfdServiceInfo peer = resolvedPeer();
    if (address != nullptr && size > 0) {
        const size_t length = strnlen(peer.ipAddress, static_cast<size_t>(size) - 1);
        memcpy(address, peer.ipAddress, length);
        address[length] = '\0';
    }
    if (port != nullptr) *port = peer.port;
    return 0;
}

int triggerSinkConnection(const char* localAddress, int localPort) {
    SIGMA_LOG("trigger Sink Connect");
    const MDnsWfdServiceInfo peer = resolvedPeer();
    triggerSinkConnect(&peer, localAddress, localPort);
    return 0;
}

int discoverPrimarySink() {
    SIGMA_LOG("Start discovery primary sink, wait 20 seconds\n");
    mDnsDiscoverWfd(WFD_R2_PRIMARY_SINK, discoverCallback);
    osal_sleep_ms(kSinkDiscoveryMs);
    mDnsStopWfdDiscovery();
    SIGMA_LOG("End\n");
    return 0;
}
