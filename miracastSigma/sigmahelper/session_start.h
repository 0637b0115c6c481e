// Session start against the session client.
#pragma once

#include <cstddef>

// A buffer for the session identifier's text: "%.8d" of any 32-bit number, and the end.
constexpr size_t kSessionIdTextSize = 12;

// The role opposite to a device type (0 source, 1 primary sink): 1 minus it, also for a number that
// is no device type.
inline int counterpartOf(int deviceType) {
    return static_cast<int>(1U - static_cast<unsigned>(deviceType));
}

// What the exported startWfdConnection does, for callers inside the library. Runs on the caller's
// thread: the agent's, or the trigger server's.
int startWfdConnectionImpl(const char* passThroughText, const char* peerAddress, int port,
                           int peerDeviceType, char* sessionIdOut, const char* localAddress);
