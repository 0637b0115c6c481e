// DNS service discovery: the client library's own <dns_sd.h>, and declarations that devices have
// and Avahi lacks.
//
// DNSServiceRefSockFD, DNSServiceProcessResult and DNSServiceRefDeallocate also accept a reference
// of DNSServiceGetAddrInfo.
#pragma once
#pragma GCC system_header  // for #include_next

#include_next <dns_sd.h>

#ifdef __cplusplus
extern "C" {
#endif

struct sockaddr;

enum { kDNSServiceErr_ServiceNotRunning = -65563 };

// The requested address families, OR-ed; 0 means both.
typedef uint32_t DNSServiceProtocol;
enum { kDNSServiceProtocol_IPv4 = 0x01, kDNSServiceProtocol_IPv6 = 0x02 };

// Reports one address. `flags`: kDNSServiceFlagsAdd for a new address, clear for a removed one.
// `errorCode`: if it is not 0, the query has ended and no later argument is valid. `hostname`: the
// full name, with its final dot. `address`: a sockaddr_in or sockaddr_in6, valid during the call.
// `ttl`: in seconds, 0 if the daemon does not tell.
typedef void(DNSSD_API* DNSServiceGetAddrInfoReply)(DNSServiceRef sdRef, DNSServiceFlags flags,
                                                    uint32_t interfaceIndex,
                                                    DNSServiceErrorType errorCode,
                                                    const char* hostname,
                                                    const struct sockaddr* address, uint32_t ttl,
                                                    void* context);

// Looks up the addresses of a host by its full name, and reports changes until the reference is
// deallocated. An unknown name gives no report: a host may take it later. Returns 0, or an error
// without having made a reference.
DNSServiceErrorType DNSSD_API DNSServiceGetAddrInfo(DNSServiceRef* sdRef, DNSServiceFlags flags,
                                                    uint32_t interfaceIndex,
                                                    DNSServiceProtocol protocol,
                                                    const char* hostname,
                                                    DNSServiceGetAddrInfoReply callBack,
                                                    void* context);

// Reports the one result of a DNSSetHostname. `hostName`: the new single-label name of the host,
// which differs from the requested one if another host on the link has that; null with an error.
typedef void(DNSSD_API* DNSSetHostnameReply)(DNSServiceRef ref, DNSServiceFlags flags,
                                             DNSServiceErrorType error, const char* hostName,
                                             void* context);

// Gives this host another name on the link (a single label, without ".local"). The platform adds
// this function to the interface. The result comes when the name has been probed for on the
// network. `flags`: 0. The name stays when the reference is deallocated. Returns 0, or an error
// without having made a reference; the simulated device returns kDNSServiceErr_Unsupported.
DNSServiceErrorType DNSSD_API DNSSetHostname(DNSServiceRef* ref, DNSServiceFlags flags,
                                             const char* hostName, DNSSetHostnameReply callBack,
                                             void* context);

#ifdef __cplusplus
}
#endif
