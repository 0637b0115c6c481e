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
constexpr int kMDnsServiceLost = 604;     // as kMDnsServiceFound
constexpr int kMDnsRegisterFailed = 605;  // request id, DNS-SD error
constexpr int kMDnsRegistered = 606;      // request id, registered name
constexpr int kMDnsResolveFailed = 607;   // request id, DNS-SD error
constexpr int kMDnsResolved = 608;  // request id, full name, host, port, TXT length, TXT base64
constexpr int kMDnsHostnameFailed = 609;     // request id, DNS-SD error
constexpr int kMDnsHostnameSet = 610;        // request id, host name
constexpr int kMDnsGetAddrInfoFailed = 611;  // request id, DNS-SD error
constexpr int kMDnsAddressFound = 612;       // request id, host name, time to live in s, address

// Threads. sendMsg is called on the thread of the command that it answers, every other function on
// the channel's monitor thread, inside the DNS-SD callback. A result can arrive before the answer
// to the command that started its request. Every function may give the channel further commands,
// also one that stops the reported request.
//
// Texts and bytes belong to the caller and are valid during the call only. The channel ignores the
// return values. `flag` asks for errno in the message; the channel always passes false.
class MIRACAST_SIGMA_EXPORT MDnsResultListener {
 public:
    virtual ~MDnsResultListener();

    // The answer to a command.
    virtual int sendMsg(int code, const char* message, bool flag) = 0;

    // One asynchronous result as a line of text; null when there was no memory for the line.
    virtual int sendBroadcast(int code, const char* message, bool flag) = 0;

    // The same result as separate values. `code` is 0, or a failure code; with a failure code every
    // pointer is null and every number 0.
    virtual void onDiscoverResult(int code, const char* serviceName, const char* regType,
                                  const char* domain) = 0;
    virtual void onRegisterResult(int code, const char* serviceName, const char* regType,
                                  const char* domain) = 0;
    // `port` in host byte order, `txtRecord` the raw record of `txtLen` bytes.
    virtual void onResolveResult(int code, const char* fullName, const char* hostTarget, int port,
                                 int txtLen, const unsigned char* txtRecord) = 0;
    virtual void onGetAddrResult(int code, const char* hostname, const char* address) = 0;

    // Returns a copy of `text` in double quotes, with a backslash before every double quote and
    // every backslash. The caller releases it with free(). Without memory it logs and returns null.
    static char* quoteArg(const char* text) noexcept;
};
