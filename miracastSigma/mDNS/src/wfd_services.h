// Under which names and types Wi-Fi Display R2 devices are found by DNS-SD, and the request ids
// that this device's requests have on its channel.
#pragma once

#include <cstdint>

#include "WfdDiscovery.h"

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): in the order in which they are read
struct WfdServiceConsts {
    int32_t type;         // WFD_R2_SOURCE, ...
    const char* name;     // the service instance name that a device of that type asks for
    const char* regType;  // the DNS-SD service type
    int32_t requestId;    // of the browse for that type
};

constexpr WfdServiceConsts kWfdNoService = {0, "", "", 0};
constexpr WfdServiceConsts kWfdSource = {WFD_R2_SOURCE, "displaysrc", "_displaysrc._tcp", 122101};
constexpr WfdServiceConsts kWfdPrimarySink = {WFD_R2_PRIMARY_SINK, "display", "_display._tcp",
                                              122102};
constexpr WfdServiceConsts kWfdSecondarySink = {WFD_R2_SECONDARY_SINK, "displayssink",
                                                "_displayssink._tcp", 122104};

// By the device type less one.
constexpr WfdServiceConsts kWfdServiceTable[] = {kWfdSource, kWfdPrimarySink, kWfdNoService,
                                                 kWfdSecondarySink};

// kWfdNoService for a number that is not one device type.
constexpr const WfdServiceConsts& wfdServiceOf(int type) {
    const unsigned index = static_cast<unsigned>(type) - 1;
    constexpr unsigned kCount = sizeof kWfdServiceTable / sizeof kWfdServiceTable[0];
    return index < kCount ? kWfdServiceTable[index] : kWfdNoService;
}

constexpr const char* kRegisterRequestId = "122110";
constexpr const char* kResolveRequestId = "122111";
constexpr const char* kGetAddrInfoRequestId = "122112";
