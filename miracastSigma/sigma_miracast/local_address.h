// This device's address on a network interface.
#pragma once

// Writes the IPv4 address of `interfaceName` (at most 15 characters count) as dotted decimal text
// into `pLocalIpAddr`, a buffer of `size` bytes, at least 20. Returns 0; -1, logged, for a null
// buffer, a smaller size, no socket or no address. On the caller's thread.
int getSigmaLocalIpAddress(char* pLocalIpAddr, int size, const char* interfaceName);
