// Parses the commands of a channel and carries them out. It keeps no state between commands.
#pragma once

#include <cstdint>

#include "MDnsSdChannel.h"

// The answer to every command of a channel without a monitor thread.
constexpr const char* kMonitorNotRunning = "mdnssd monitor is not running";

class MIRACAST_SIGMA_EXPORT MDnsSdChannel::Handler {
 public:
    // Neither is owned. `monitor` may be null.
    Handler(Monitor* monitor, MDnsSdChannel* channel) noexcept;
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;
    virtual ~Handler();

    // Like MDnsSdChannel::runCommand, but answers `listener`.
    int runCommand(MDnsResultListener* listener, int argc, char** argv) noexcept;

 private:
    struct StartTexts;

    // Every request uses any interface and no flags: the interface names and request flags of these
    // functions are only logged.
    void discover(MDnsResultListener* listener, const char* interfaceName, const char* regType,
                  const char* domain, int requestId, int requestFlags) noexcept;
    // `port` in host byte order.
    void serviceRegister(MDnsResultListener* listener, int requestId, const char* interfaceName,
                         const char* serviceName, const char* serviceType, const char* domain,
                         const char* host, int port, int txtLen, void* txtRecord) noexcept;
    void resolveService(MDnsResultListener* listener, int requestId, const char* interfaceName,
                        const char* serviceName, const char* regType, const char* domain) noexcept;
    // `protocol` as DNSServiceGetAddrInfo takes it.
    void getAddrInfo(MDnsResultListener* listener, int requestId, const char* interfaceName,
                     uint32_t protocol, const char* hostname) noexcept;
    void setHostname(MDnsResultListener* listener, int requestId, const char* hostname) noexcept;
    // Stops the request with the id in argv[2], whichever operation started it. `operation` is the
    // name for log lines and replies.
    void stop(MDnsResultListener* listener, int argc, char** argv, const char* operation) noexcept;

    void registerFromText(MDnsResultListener* listener, char** argv);

    // The common steps of all operations that start a request. `call` makes the DNS-SD call, with
    // the reference to fill and the callback's context, and returns its error.
    template <typename Call>
    void start(MDnsResultListener* listener, int requestId, const StartTexts& texts, Call call);

    // Convert the flags and interface names of commands to and from those of DNS-SD: always no
    // flags and any interface.
    static int iToFlags(int flags) noexcept;
    static int ifaceNameToI(const char* interfaceName) noexcept;
    static const char* iToIfaceName(int interfaceIndex) noexcept;
    static int flagsToI(uint32_t flags) noexcept;

    MDnsSdChannel* mChannel;
    Monitor* mMonitor;
};
