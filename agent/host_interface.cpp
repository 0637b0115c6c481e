#include "agent/host_interface.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "agent/Log.h"
#include "agent/Text.h"
#include "agent/status.h"

namespace agent {

namespace {

// An IPv4 address out of an address that may lie anywhere in memory.
std::string ipv4Text(const sockaddr* address) {
    sockaddr_in v4{};
    if (address != nullptr) std::memcpy(&v4, address, sizeof v4);
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
    return text;
}

// Calls `describe` with the entry of the named interface for an address family.
template <typename Describe>
std::string describeInterface(const CapiCommand& command, int family, Describe describe) {
    const std::string name = command.parameter("interface");
    ifaddrs* list = nullptr;
    getifaddrs(&list);
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(list, freeifaddrs);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (name != entry->ifa_name || entry->ifa_addr == nullptr ||
            entry->ifa_addr->sa_family != family) {
            continue;
        }
        return complete(describe(*entry));
    }
    logLine(command.name() + ": this host has no interface \"" + printable(name) +
            "\" with such an address");
    return kError;
}

}  // namespace

std::string getIpConfig(const CapiCommand& command) {
    return describeInterface(command, AF_INET, [](const ifaddrs& entry) {
        return "dhcp,0,ip," + ipv4Text(entry.ifa_addr) + ",mask," + ipv4Text(entry.ifa_netmask);
    });
}

std::string getMacAddress(const CapiCommand& command) {
    return describeInterface(command, AF_PACKET, [](const ifaddrs& entry) {
        sockaddr_ll link{};
        std::memcpy(&link, entry.ifa_addr, sizeof link);
        char text[18];
        std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", link.sll_addr[0],
                      link.sll_addr[1], link.sll_addr[2], link.sll_addr[3], link.sll_addr[4],
                      link.sll_addr[5]);
        return std::string("mac,") + text;
    });
}

}  // namespace agent
