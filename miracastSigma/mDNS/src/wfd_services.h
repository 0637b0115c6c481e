// The DNS-SD names and service types of Wi-Fi Display R2 devices, and the ids of this device's
// channel requests.
#pragma once

#include <cstdint>

#include "wfd_discovery.h"

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): ordered for the reader
struct WfdServiceConsts {
    int32_t type;         // WFD_R2_SOURCE, ...
    const char* name;     // the service instance name that a device of that type asks for
    const char* regType;  // the DNS-SD service type
    int32_t requestId;    // of the browse for that type
};

inline constexpr WfdServiceConsts kWfdNoService = {0, "", "", 0};
inline constexpr WfdServiceConsts kWfdSource = {WFD_R2_SOURCE, "displaysrc", "_displaysrc._tcp",
                                                122101};
inline constexpr WfdServiceConsts kWfdPrimarySink = {WFD_R2_PRIMARY_SINK, "display",
                                                     "_display._tcp", 122102};
inline constexpr WfdServiceConsts kWfdSecondarySink = {WFD_R2_SECONDARY_SINK, "displayssink",
                                                       "_displayssink._tcp", 122104};

// Indexed by device type minus 1.
inline constexpr WfdServiceConsts kWfdServiceTable[] = {kWfdSource, kWfdPrimarySink, kWfdNoService,
                                                        kWfdSecondarySink};

// Returns kWfdNoService for a number that is not exactly one device type.
constexpr const WfdServiceConsts& wfdServiceOf(int type) {
    const unsigned index = static_cast<unsigned>(type) - 1;
    constexpr unsigned kCount = sizeof kWfdServiceTable / sizeof kWfdServiceTable[0];
    return index < kCount ? kWfdServiceTable[index] : kWfdNoService;
}

inline constexpr const char* kRegisterRequestId = "122110";
inline constexpr const char* kResolveRequestId = "122111";
inline constexpr const char* kGetAddrInfoRequestId = "122112";
