/*
 * Discovery of Wi-Fi Display R2 peers on an infrastructure network. C and C++.
 *
 * A device registers itself as an R2 source or sink with the platform's mDNS daemon, browses for
 * peers, and resolves one of them to an address and a port. A sink registers the port of a small
 * TCP server, on which a source asks it to connect ("trigger").
 *
 * All functions work on one object of the process. Registering, unregistering, discovering and
 * setTriggerCallback make it when there is none; the others then do nothing, and those with a
 * result return -1.
 *
 * Threads. Call one function at a time; mDnsResolveWfd may also be called from inside a discovery
 * callback. Registration, discovery and resolution call back on the monitor thread of the DNS-SD
 * channel, where all further results wait until the callback returns. The trigger callback runs on
 * the trigger server's thread.
 *
 * Results, where nothing else is said: 200 when the request was started or stopped, 501 when it was
 * refused, -1 for arguments that are not allowed. A request that was stopped is refused for the
 * moment that the monitor thread takes to forget it.
 */
#ifndef WFD_DISCOVERY_H
#define WFD_DISCOVERY_H

#include "MDnsWfdServiceInfo.h"
#include "miracast_sigma.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Device types; a set of them is their OR. */
enum { WFD_R2_SOURCE = 1, WFD_R2_PRIMARY_SINK = 2, WFD_R2_SECONDARY_SINK = 4 };

/*
 * result 0: a record that is valid during the call; that of a resolution until the next one, a
 * failure of its own, or mDnsClearInstances.
 * Otherwise a result code of the DNS-SD channel and a null record.
 */
typedef void (*MDnsRegisterCallback)(int result, const MDnsWfdServiceInfo* info);
typedef void (*MDnsDiscoverCallback)(int result, const MDnsWfdServiceInfo* info);

/* peerAddress: the source's IPv4 address, dotted decimal, valid during the call. port: the source's
 * port to connect to. */
typedef void (*TriggerCallback)(const char* peerAddress, int port);

/* Ends registration, discovery and resolution and destroys the object. Its trigger server, once
 * there, goes on until the process ends. */
MIRACAST_SIGMA_EXPORT void mDnsClearInstances(void);

/* Registers a sink: WFD_R2_PRIMARY_SINK as "display", WFD_R2_SECONDARY_SINK as "displayssink", with
 * the port of the trigger server. The callback gets the name that was registered in the end, again
 * when it changes. One registration at a time: unregister first. -1 also when the server's thread
 * cannot be started. */
MIRACAST_SIGMA_EXPORT int mDnsRegisterWfdSink(int deviceSinkType, MDnsRegisterCallback callback);

/* Registers a source as "displaysrc" with its RTSP control port. `name` is not used, may be null.
 */
MIRACAST_SIGMA_EXPORT int mDnsRegisterWfdSource(const char* name, int port,
                                                MDnsRegisterCallback callback);

/* -1 when nothing is registered. */
MIRACAST_SIGMA_EXPORT int mDnsUnregisterWfd(void);

/* Browses for one type, or for both types of sinks. The callback is told of every service that is
 * found, and of every one that is lost, until the discovery is stopped. */
MIRACAST_SIGMA_EXPORT int mDnsDiscoverWfd(int deviceTypes, MDnsDiscoverCallback callback);
MIRACAST_SIGMA_EXPORT int mDnsStopWfdDiscovery(void);

/* Resolves a discovered service. The callback is called once for every address of its host. The
 * object resolves one service in its life: the address query stays with it. */
MIRACAST_SIGMA_EXPORT int mDnsResolveWfd(const MDnsWfdServiceInfo* info,
                                         MDnsRegisterCallback callback);

/* Makes the trigger server, if there is none, and tells it whom to call. Not on a registered
 * source. Returns 0; -1 also when the server's thread cannot be started. */
MIRACAST_SIGMA_EXPORT int setTriggerCallback(TriggerCallback callback);

/* Asks a resolved sink to connect to `localPort` of this host; tries for about 10 seconds to reach
 * it. `localAddress` is not sent: the sink sees where the connection comes from. Not on a
 * registered sink. Returns 0, whether or not the sink could be reached. */
MIRACAST_SIGMA_EXPORT int triggerSinkConnect(const MDnsWfdServiceInfo* peer,
                                             const char* localAddress, int localPort);

#ifdef __cplusplus
}
#endif

#endif
