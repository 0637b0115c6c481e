// Starts sessions with the session client.
#pragma once

#include <cstddef>

// Size of a buffer for the session identifier's text: "%.8d" of any 32-bit number, and a NUL.
constexpr size_t kSessionIdTextSize = 12;

// The body of the exported startWfdConnection. Runs on the agent's thread or the trigger server's.
int startWfdConnectionImpl(const char* passThroughText, const char* peerAddress, int port,
                           int peerDeviceType, char* sessionIdOut, const char* localAddress);
