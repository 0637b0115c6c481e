// The sink's end of the trigger: listens on an ephemeral TCP port of all IPv4 interfaces and
// reports each source that asks for a connection.
//
// Lifetime. The accept thread runs from construction until an accept fails, a command is malformed,
// or the server is destroyed; its end closes the listening socket. The port of a server whose setup
// failed is -1.
//
// Threads. The callback runs on the accept thread. Both sockets are atomic: a thread that exchanges
// one for -1 closes it, so no socket is used after it was closed.
#pragma once

#include <netinet/in.h>

#include <atomic>

#include "wfd_discovery.h"

class WaitableThread;

class MIRACAST_SIGMA_EXPORT WFDTriggerTcpServer {
 public:
    // Failures are logged; isRunning() tells whether there is an accept thread.
    WFDTriggerTcpServer() noexcept;
    // Ends the accept thread, also while it reads a command, and waits for a running callback.
    ~WFDTriggerTcpServer();
    WFDTriggerTcpServer(const WFDTriggerTcpServer&) = delete;
    WFDTriggerTcpServer& operator=(const WFDTriggerTcpServer&) = delete;

    bool isRunning() const { return mThread != nullptr; }

    // Sets the callback for all further commands. Any thread may call.
    void setCallback(TriggerCallback callback) noexcept;

    // Returns the listening port in host byte order; -1 when it is not known.
    int getServerPort() noexcept;

 private:
    static void serverThreadStart(WFDTriggerTcpServer* server) noexcept;
    // Reads one command from a connection. Logs and returns false if it is incomplete or malformed.
    bool readRequestConnectionCommand(int connection, char* command) noexcept;
    bool readAll(int connection, char* buffer, int size) noexcept;
    // Calls the callback with a command.
    void handleRequestConnectionCommand(sockaddr_in* peer, char* command) noexcept;
    bool serve(int connection, sockaddr_in* peer);

    std::atomic<TriggerCallback> mCallback{nullptr};
    WaitableThread* mThread = nullptr;
    std::atomic<int> mSocket{-1};
    int mPort = -1;                    // written only before the thread starts
    std::atomic<int> mConnection{-1};  // the connection that is being served
};
