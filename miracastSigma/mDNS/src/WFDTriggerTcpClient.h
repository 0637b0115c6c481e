// The source's end of the trigger: connects to a sink's trigger server and sends one command.
//
// Usage: construct, retrytcpconnect, trigger, destroy; all on one thread.
#pragma once

#include <netinet/in.h>

#include <string>

#include "miracast_sigma.h"

class MIRACAST_SIGMA_EXPORT WFDTriggerTcpClient {
 public:
    // Tries once to connect to a sink, `address` being its IPv4 address in dotted decimal. Failures
    // are logged.
    WFDTriggerTcpClient(const std::string& address, int port);
    ~WFDTriggerTcpClient();
    WFDTriggerTcpClient(const WFDTriggerTcpClient&) = delete;
    WFDTriggerTcpClient& operator=(const WFDTriggerTcpClient&) = delete;

    // Unless the constructor has connected: tries to connect to `port` of the same sink every 200
    // ms until it succeeds or more than 10 seconds of device time have passed. Blocks for that
    // long, and for what the last attempt takes.
    void retrytcpconnect(int port);

    // Asks the sink to connect to `port` of this host. The address is not sent. True when the whole
    // command was written.
    bool trigger(const std::string& address, int port);

 private:
    bool openSocket();
    void closeSocket();

    int mSocket = -1;
    bool mConnected = false;
    sockaddr_in mSink{};  // where the retries go too; without a family when there is no address
};
