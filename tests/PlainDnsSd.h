// A small DNS-SD client without the library, on this host: the other view of what the library has
// put on the network, and what its speed is measured against.
#pragma once

#include <optional>
#include <string>

struct ResolvedService {
    std::string name;
    std::string ipv4;  // the first address of the service's host
    int port = 0;
};

// The first service of a type, or the one of that name. Nothing when there is none within
// 10 seconds.
std::optional<ResolvedService> findService(const std::string& regType);
std::optional<ResolvedService> resolveService(const std::string& name, const std::string& regType);
