// The listener of the DNS-SD command channel: implemented by the channel's owner.
#pragma once

#include "miracast_sigma.h"

// Codes of replies and results.
constexpr int kMDnsDone = 200;            // command done, or request started
constexpr int kMDnsServiceRunning = 402;  // mDNS daemon already running
constexpr int kMDnsServiceInUse = 403;    // mDNS daemon still in use
constexpr int kMDnsUnknownCommand = 500;  // unknown command word
constexpr int kMDnsRefused = 501;  // bad arguments, request id in use or unknown, DNS-SD error
constexpr int kMDnsDiscoverFailed = 602;  // result line: request id, DNS-SD error
constexpr int kMDnsServiceFound = 603;    // request id, service name, service type, domain
constexpr int kMDnsServiceLost = 604;     // the same
constexpr int kMDnsRegisterFailed = 605;  // request id, DNS-SD error
constexpr int kMDnsRegistered = 606;      // request id, registered name
constexpr int kMDnsResolveFailed = 607;   // request id, DNS-SD error
constexpr int kMDnsResolved = 608;  // request id, full name, host, port, TXT length, TXT base64
constexpr int kMDnsHostnameFailed = 609;     // request id, DNS-SD error
constexpr int kMDnsHostnameSet = 610;        // request id, host name
constexpr int kMDnsGetAddrInfoFailed = 611;  // request id, DNS-SD error
constexpr int kMDnsAddressFound = 612;       // request id, host name, time to live in s, address

// Threads. sendMsg is called on the thread of the command that it answers; everything else on the
// channel's monitor thread, from inside the DNS-SD result. A result can arrive before the reply to
// the command that asked for it. Any operation may give the channel further commands, also a stop
// of the very request that is being reported.
//
// Texts and bytes are the caller's and valid during the call only. `flag` would ask for errno to be
// added and is always false.
class MIRACAST_SIGMA_EXPORT MDnsResultListener {
 public:
    virtual ~MDnsResultListener();

    // The one answer to a command.
    virtual int sendMsg(int code, const char* message, bool flag) = 0;

    // One asynchronous result as a line of text; null when there was no memory for it.
    virtual int sendBroadcast(int code, const char* message, bool flag) = 0;

    // The same result in its parts. `code` is 0, or that of a failure, with null and 0 for the
    // rest.
    virtual void onDiscoverResult(int code, const char* serviceName, const char* regType,
                                  const char* domain) = 0;
    virtual void onRegisterResult(int code, const char* serviceName, const char* regType,
                                  const char* domain) = 0;
    // `port` in host byte order, `txtRecord` the raw record of `txtLen` bytes.
    virtual void onResolveResult(int code, const char* fullName, const char* hostTarget, int port,
                                 int txtLen, const unsigned char* txtRecord) = 0;
    virtual void onGetAddrResult(int code, const char* hostname, const char* address) = 0;

    // A copy of `text` between double quotes, with a backslash before every double quote and every
    // backslash. To be released with free(); null, logged, without memory.
    static char* quoteArg(const char* text);
};
