// The sink's end of the trigger: listens on an ephemeral TCP port of all IPv4 interfaces and
// reports who asks to be connected to.
//
// Lifetime. The accept thread runs from construction until an accept fails, a command is malformed,
// or the server is destroyed; then nothing listens any more. A server that could not be set up is
// still an object, whose port is not known.
//
// Threads. The callback runs on the accept thread. Each descriptor is closed by whoever exchanges
// it for -1: a number that has been closed is never used again.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "WfdDiscovery.h"

class MIRACAST_SIGMA_EXPORT WFDTriggerTcpServer {
 public:
    // Throws std::system_error when the thread cannot be started; every other failure is logged.
    WFDTriggerTcpServer();
    // Ends the accept thread, also while it waits for a command; waits for a callback in progress.
    ~WFDTriggerTcpServer();
    WFDTriggerTcpServer(const WFDTriggerTcpServer&) = delete;
    WFDTriggerTcpServer& operator=(const WFDTriggerTcpServer&) = delete;

    // Whom to call for commands from now on. On any thread.
    void setCallback(TriggerCallback callback);

    // In host byte order; -1 when it is not known.
    int getServerPort();

 private:
    static void serverThreadStart(WFDTriggerTcpServer* server);
    // Reads one command from a connection. False, logged, when it is incomplete or not one.
    bool readRequestConnectionCommand(int connection, char* command);
    bool readAll(int connection, char* buffer, int size);
    // Reports a command to the callback.
    void handleRequestConnectionCommand(sockaddr_in* peer, char* command);
    bool serve(int connection, sockaddr_in* peer);

    std::atomic<TriggerCallback> mCallback{nullptr};
    // Detached: what a thread that ended by itself leaves would stay until somebody joins it, and
    // the server of a device is never destroyed.
    std::thread* mThread = nullptr;
    std::atomic<int> mSocket{-1};
    int mPort = -1;                    // written before the thread starts
    std::atomic<int> mConnection{-1};  // whose command is being carried out

    std::mutex mEndLock;  // guards mEnded
    std::condition_variable mEndChanged;
    bool mEnded = false;  // set by the thread, which does not touch the server after that
};
