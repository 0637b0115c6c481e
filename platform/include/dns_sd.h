// DNS service discovery: the client library's own <dns_sd.h>, completed where an installed one
// falls short of a device's, and with the platform's own addition to that interface.
//
// What is completed works with DNSServiceRefSockFD, DNSServiceProcessResult and
// DNSServiceRefDeallocate like everything else of the interface. A configuration whose client
// library has DNSServiceGetAddrInfo defines DNS_SD_HAS_GETADDRINFO.
#pragma once
#pragma GCC system_header  // for #include_next

#include_next <dns_sd.h>

#ifdef __cplusplus
extern "C" {
#endif

struct sockaddr;

#ifndef DNS_SD_HAS_GETADDRINFO

enum { kDNSServiceErr_ServiceNotRunning = -65563 };

// Which addresses are wanted: either, both, or 0. With 0 both families are looked up; but of a name
// outside ".local", addresses of a family in which this host itself has no routable address are
// left out, since they would be of no use.
typedef uint32_t DNSServiceProtocol;
enum { kDNSServiceProtocol_IPv4 = 0x01, kDNSServiceProtocol_IPv6 = 0x02 };

// One address. `flags`: kDNSServiceFlagsAdd for an address that is there, clear for one that went
// away. `errorCode`: when it is not 0, the query has ended and nothing after it is valid.
// `hostname`: the full name, with its final dot. `address`: a sockaddr_in or
// sockaddr_in6, valid during the call. `ttl`: seconds, 0 when the daemon does not tell.
typedef void(DNSSD_API* DNSServiceGetAddrInfoReply)(DNSServiceRef sdRef, DNSServiceFlags flags,
                                                    uint32_t interfaceIndex,
                                                    DNSServiceErrorType errorCode,
                                                    const char* hostname,
                                                    const struct sockaddr* address, uint32_t ttl,
                                                    void* context);

// Looks up the addresses of a host by its full name, and goes on reporting what changes until the
// reference is deallocated. A name that nobody has is not reported: somebody may still take it.
// Returns an error without having made a reference, or 0.
DNSServiceErrorType DNSSD_API DNSServiceGetAddrInfo(DNSServiceRef* sdRef, DNSServiceFlags flags,
                                                    uint32_t interfaceIndex,
                                                    DNSServiceProtocol protocol,
                                                    const char* hostname,
                                                    DNSServiceGetAddrInfoReply callBack,
                                                    void* context);

#endif

// The one result of a DNSSetHostname. `hostName`: the single-label name that the host has from now
// on; not the one asked for when another host on the link has that. Null with an error.
typedef void(DNSSD_API* DNSSetHostnameReply)(DNSServiceRef ref, DNSServiceFlags flags,
                                             DNSServiceErrorType error, const char* hostName,
                                             void* context);

// Gives this host another name on the link (a single label, without ".local"). The result comes
// when the name has been probed for on the network. `flags`: 0. The name stays when the reference
// is deallocated. Returns an error without having made a reference, or 0.
DNSServiceErrorType DNSSD_API DNSSetHostname(DNSServiceRef* ref, DNSServiceFlags flags,
                                             const char* hostName, DNSSetHostnameReply callBack,
                                             void* context);

#ifdef __cplusplus
}
#endif
