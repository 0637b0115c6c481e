// Session start against the session client.
#pragma once

// What the exported startWfdConnection does, for callers inside the library. Runs on the caller's
// thread: the agent's, or the trigger server's.
int startWfdConnectionImpl(const char* passThroughText, const char* peerAddress, int port,
                           int peerDeviceType, char* sessionIdOut, const char* localAddress);
