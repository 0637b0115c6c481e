// The DNS-SD callbacks of the channel's requests. Each turns one result into a result line and a
// structured call on the listener. They run on the monitor thread; `context` is the request's
// MDnsSdChannel::Context.
#pragma once

#include <dns_sd.h>

#include <cstdint>

#include "miracast_sigma.h"

MIRACAST_SIGMA_EXPORT void MDnsSdListenerDiscoverCallback(
    DNSServiceRef ref, DNSServiceFlags flags, uint32_t interfaceIndex, DNSServiceErrorType error,
    const char* serviceName, const char* regType, const char* domain, void* context) noexcept;
MIRACAST_SIGMA_EXPORT void MDnsSdListenerRegisterCallback(DNSServiceRef ref, DNSServiceFlags flags,
                                                          DNSServiceErrorType error,
                                                          const char* serviceName,
                                                          const char* regType, const char* domain,
                                                          void* context) noexcept;
MIRACAST_SIGMA_EXPORT void MDnsSdListenerResolveCallback(
    DNSServiceRef ref, DNSServiceFlags flags, uint32_t interfaceIndex, DNSServiceErrorType error,
    const char* fullName, const char* hostTarget, uint16_t port, uint16_t txtLen,
    const unsigned char* txtRecord, void* context) noexcept;
MIRACAST_SIGMA_EXPORT void MDnsSdListenerGetAddrInfoCallback(
    DNSServiceRef ref, DNSServiceFlags flags, uint32_t interfaceIndex, DNSServiceErrorType error,
    const char* hostname, const struct sockaddr* address, uint32_t timeToLive,
    void* context) noexcept;
MIRACAST_SIGMA_EXPORT void MDnsSdListenerSetHostnameCallback(DNSServiceRef ref,
                                                             DNSServiceFlags flags,
                                                             DNSServiceErrorType error,
                                                             const char* hostname,
                                                             void* context) noexcept;
