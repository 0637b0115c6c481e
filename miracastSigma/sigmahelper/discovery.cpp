#include "discovery.h"

#include <atomic>
#include <cstring>

#include "Undestroyed.h"
#include "c_text.h"
#include "device_role.h"
#include "miracast_sigma.h"
#include "osal/osal.h"
#include "session_start.h"
#include "sigma_log.h"
#include "utils/Mutex.h"
#include "wfd_discovery.h"

namespace {

constexpr uint32_t kPollIntervalMs = 1000;
constexpr int kNamePolls = 10;
constexpr int kResolvePolls = 60;
constexpr uint32_t kSinkDiscoveryMs = 20000;
constexpr size_t kMaxIpv4Text = 15;  // longer texts are IPv6 addresses

// Guards instanceName and actualvalues, which the monitor thread fills and the command thread
// copies.
Undestroyed<android::Mutex> resultLock;

// Set by the monitor thread, cleared and polled by the command thread.
std::atomic<bool> mdns_discover_done{false};
std::atomic<bool> mdns_resolve_done{false};  // set once actualvalues is complete

void setInstanceName(const char* name) {
    const android::Mutex::Autolock lock(*resultLock);
    copyText(instanceName, name);
}

MDnsWfdServiceInfo resolvedPeer() {
    const android::Mutex::Autolock lock(*resultLock);
    return actualvalues;
}

void onRegistered(const char* service, int result, const MDnsWfdServiceInfo* info) {
    if (result != 0) {
        SIGMA_LOG("Failed to register %s\n", service);
        return;
    }
    SIGMA_LOG("Succeeded to register %s: %s %s %s\n", service, info->serviceName, info->regType,
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
        const android::Mutex::Autolock lock(*resultLock);
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

// Polls until a peer has been resolved; false on timeout. Does not poll after the last sleep.
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

void copyInstanceName(char (&name)[64]) {
    const android::Mutex::Autolock lock(*resultLock);
    copyText(name, instanceName);
}

void resetmDNSParams() noexcept {
    setInstanceName("");
    mDnsClearInstances();
    setInstanceName("");  // again: the old registration may have set it in between
}

int registerSource() noexcept {
    SIGMA_LOG("Start register source, wait 20 seconds\n");
    mDnsUnregisterWfd();
    mDnsRegisterWfdSource(nullptr, kRtspControlPort, registerSourceCallback);
    SIGMA_LOG("End\n");
    return 0;
}

int registerPrimarySink() noexcept {
    SIGMA_LOG("Start register primary sink, wait 20 seconds\n");
    mDnsUnregisterWfd();
    setTriggerCallback(triggerCallback);
    mDnsRegisterWfdSink(WFD_R2_PRIMARY_SINK, registerCallback);
    SIGMA_LOG("End\n");
    return 0;
}

char* getInstanceName() noexcept {
    char name[sizeof instanceName];
    for (int poll = 0; poll < kNamePolls; ++poll) {
        copyInstanceName(name);
        if (name[0] != '\0') break;
        SIGMA_LOG("Received service name %s \n", name);
        osal_sleep_ms(kPollIntervalMs);
    }
    return instanceName;
}

int discovermDNSPeer(int deviceType) noexcept {
    mdns_discover_done = false;
    mdns_resolve_done = false;
    SIGMA_LOG("Start discovery of mdns peer\n");
    mDnsDiscoverWfd(deviceType == MIRACAST_SOURCE ? WFD_R2_PRIMARY_SINK : WFD_R2_SOURCE,
                    discoverCallback);
    SIGMA_LOG("End\n");
    return 0;
}

int waitforDiscovery() noexcept {
    const int result = waitResolved() ? 0 : -1;
    mDnsStopWfdDiscovery();
    return result;
}

int getmDNSPeerIPandPort(char* address, int size, int* port) noexcept {
    const MDnsWfdServiceInfo peer = resolvedPeer();
    if (address != nullptr && size > 0) {
        const size_t length = strnlen(peer.ipAddress, static_cast<size_t>(size) - 1);
        memcpy(address, peer.ipAddress, length);
        address[length] = '\0';
    }
    if (port != nullptr) *port = peer.port;
    return 0;
}

int triggerSinkConnection(const char* localAddress, int localPort) noexcept {
    SIGMA_LOG("trigger Sink Connect");
    const MDnsWfdServiceInfo peer = resolvedPeer();
    if (triggerSinkConnect(&peer, localAddress, localPort) != 0) {
        SIGMA_LOG("Failed to trigger the sink\n");
    }
    return 0;
}

int discoverPrimarySink() noexcept {
    SIGMA_LOG("Start discovery primary sink, wait 20 seconds\n");
    mDnsDiscoverWfd(WFD_R2_PRIMARY_SINK, discoverCallback);
    osal_sleep_ms(kSinkDiscoveryMs);
    mDnsStopWfdDiscovery();
    SIGMA_LOG("End\n");
    return 0;
}
