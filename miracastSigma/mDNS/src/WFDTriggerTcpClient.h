// The source's end of the trigger: connects to a sink's trigger server and sends one command.
//
// Usage: construct, retrytcpconnect, trigger, destroy; all on one thread.
#pragma once

#include <netinet/in.h>

#include <string>

#include "miracast_sigma.h"

class MIRACAST_SIGMA_EXPORT WFDTriggerTcpClient {
 public:
    // Tries once to connect to a sink at the IPv4 address `address` (dotted decimal). Failures are
    // logged.
    WFDTriggerTcpClient(const std::string& address, int port) noexcept;
    ~WFDTriggerTcpClient();
    WFDTriggerTcpClient(const WFDTriggerTcpClient&) = delete;
    WFDTriggerTcpClient& operator=(const WFDTriggerTcpClient&) = delete;

    // If the constructor could not connect: tries to connect to `port` of the same sink every 200
    // ms until it succeeds or more than 10 seconds of device time have passed. Blocks for that long
    // and until the last attempt returns. If the address is no IPv4 address, logs the failure and
    // returns at once.
    void retrytcpconnect(int port) noexcept;

    // Asks the sink to connect to `port` of this host. `address` is not sent. Returns true when the
    // whole command was written.
    bool trigger(const std::string& address, int port) noexcept;

 private:
    bool openSocket();
    void closeSocket();

    int mSocket = -1;
    bool mConnected = false;
    sockaddr_in mSink{};  // sin_family is 0 if the address is no IPv4 address
};
