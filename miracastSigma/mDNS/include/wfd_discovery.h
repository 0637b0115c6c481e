/*
 * The discovery functions: they work on the process's WFDmDns, the device's end of the DNS-SD
 * channel. The test commands call them through the steps of sigmahelper/discovery.h. C and C++.
 *
 * A device registers itself as a Wi-Fi Display R2 source or sink with the platform's mDNS daemon,
 * browses for peers, and resolves one of them to an address and a port. A sink registers the port
 * of its trigger server, a small TCP server through which a source asks it to connect.
 *
 * Registering, unregistering, discovering and setTriggerCallback make the WFDmDns object if there
 * is none. Without an object the other functions do nothing; those with a result log it and return
 * -1.
 *
 * Threads. Call one function at a time; mDnsResolveWfd may also be called inside a discovery or
 * address callback. Registration, discovery and resolution call back on the monitor thread of the
 * DNS-SD channel, which delivers no further result until the callback returns. The trigger callback
 * runs on the trigger server's thread. A function that stops a request waits until a running
 * callback of that request returns: do not hold a lock that the callback takes.
 *
 * Results, unless the function's comment says otherwise: 200 when the request was started or
 * stopped, 501 when it was refused, -1 for invalid arguments and without memory. A start waits up
 * to a second until the monitor thread has removed a stopped request of the same kind; inside a
 * callback it does not wait and is refused.
 */
#ifndef WFD_DISCOVERY_H
#define WFD_DISCOVERY_H

#include "MDnsWfdServiceInfo.h"
#include "miracast_sigma.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Device types; OR them for a set of types. */
enum { WFD_R2_SOURCE = 1, WFD_R2_PRIMARY_SINK = 2, WFD_R2_SECONDARY_SINK = 4 };

/*
 * Called with result 0 and a record, or with a failure code of the DNS-SD channel (602 to 611) and
 * null. The record is valid during the call; that of a resolution stays valid until the next
 * resolution, its own failure, or mDnsClearInstances.
 */
typedef void (*MDnsRegisterCallback)(int result, const MDnsWfdServiceInfo* info);
typedef void (*MDnsDiscoverCallback)(int result, const MDnsWfdServiceInfo* info);

/* peerAddress: the source's IPv4 address, dotted decimal, valid during the call. port: the port
 * of the source to connect to. */
typedef void (*TriggerCallback)(const char* peerAddress, int port);

/* Ends registration, discovery and resolution and destroys the object. The object's trigger
 * server keeps running until the process ends. */
MIRACAST_SIGMA_EXPORT void mDnsClearInstances(void) MIRACAST_SIGMA_NOEXCEPT;

/* Registers a sink with the port of its trigger server: WFD_R2_PRIMARY_SINK as "display",
 * WFD_R2_SECONDARY_SINK as "displayssink". The callback gets the name that the daemon
 * registered, and each later name. Only one registration at a time: unregister first. Returns -1
 * also when the server's thread cannot be started. */
MIRACAST_SIGMA_EXPORT int mDnsRegisterWfdSink(int deviceSinkType, MDnsRegisterCallback callback)
    MIRACAST_SIGMA_NOEXCEPT;

/* Registers a source as "displaysrc" with its RTSP control port. `name` is not used and may be
 * null. */
MIRACAST_SIGMA_EXPORT int mDnsRegisterWfdSource(
    const char* name, int port, MDnsRegisterCallback callback) MIRACAST_SIGMA_NOEXCEPT;

/* Withdraws the registration. Returns -1 when nothing is registered. */
MIRACAST_SIGMA_EXPORT int mDnsUnregisterWfd(void) MIRACAST_SIGMA_NOEXCEPT;

/* Browses for one device type, or for both types of sinks. Until the discovery is stopped, the
 * callback is called for every service that is found or lost. */
MIRACAST_SIGMA_EXPORT int mDnsDiscoverWfd(int deviceTypes,
                                          MDnsDiscoverCallback callback) MIRACAST_SIGMA_NOEXCEPT;

/* Stops all browses. Returns -1 when no discovery was started. */
MIRACAST_SIGMA_EXPORT int mDnsStopWfdDiscovery(void) MIRACAST_SIGMA_NOEXCEPT;

/* Resolves the discovered service *info, which is copied. The callback is called once for every
 * address of the service's host. An object resolves one service in its life, because its address
 * query ends with the object. */
MIRACAST_SIGMA_EXPORT int mDnsResolveWfd(const MDnsWfdServiceInfo* info,
                                         MDnsRegisterCallback callback) MIRACAST_SIGMA_NOEXCEPT;

/* Makes the trigger server, if there is none, and sets its callback. Refused on a registered
 * source. Returns 0; -1 when refused or when the server's thread cannot be started. */
MIRACAST_SIGMA_EXPORT int setTriggerCallback(TriggerCallback callback) MIRACAST_SIGMA_NOEXCEPT;

/* Asks a resolved sink to connect to `localPort` of this host. Tries for about 10 seconds to
 * reach the sink; when the network drops packets, for as long as two blocking connects take.
 * `localAddress` is not sent: the sink uses the address of the connection. Refused on a
 * registered sink. Returns 0 even if the sink was not reached; -1 when refused. */
MIRACAST_SIGMA_EXPORT int triggerSinkConnect(const MDnsWfdServiceInfo* peer,
                                             const char* localAddress,
                                             int localPort) MIRACAST_SIGMA_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
