#pragma once

// Writes this device's IPv4 address on `interfaceName` (cut to 15 characters) into `pLocalIpAddr`
// as dotted decimal text. The buffer has `size` bytes, at least 20. Runs on the caller's thread.
// Returns 0. Logs and returns -1 for a null or smaller buffer, without a socket, or without an
// address.
int getSigmaLocalIpAddress(char* pLocalIpAddr, int size, const char* interfaceName);
