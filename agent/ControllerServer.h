// The TCP server for test controllers.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <system_error>
#include <thread>

#include "agent/CommandRunner.h"
#include "host/Mutex.h"

namespace agent {

// Serves one controller at a time: reads a line, answers status,RUNNING, has the command carried
// out and answers its final status line, then takes the next line.
//
// A new connection from the address of the one being served takes its place, since controllers
// reconnect without closing. The command in progress is finished, but its answer and what else the
// old connection has sent are dropped. A connection from another address is answered ERROR to its
// first line and closed.
//
// Threads: one accepts, and each connection has one of its own, on which its commands run.
class ControllerServer {
 public:
    // Listens on `endpoint`, a port of 0 being any free one, and says on standard error where.
    // Throws std::runtime_error when that is not possible. `runner` must outlive the server.
    // Calls `onController` on the accepting thread once a controller is connected.
    ControllerServer(const asio::ip::tcp::endpoint& endpoint, CommandRunner& runner,
                     std::function<void()> onController);

    // Starts no further command; waits for the one in progress and its answer.
    ~ControllerServer();
    ControllerServer(const ControllerServer&) = delete;
    ControllerServer& operator=(const ControllerServer&) = delete;

 private:
    class Connection;
    using ConnectionPointer = std::shared_ptr<Connection>;

    void acceptAll();
    std::error_code take(asio::ip::tcp::socket socket) REQUIRES(mMutex);
    void serve(ConnectionPointer connection, bool refused);

    CommandRunner& mRunner;
    const std::function<void()> mOnController;
    asio::io_context mContext;
    asio::ip::tcp::acceptor mAcceptor;

    hostplatform::Mutex mMutex;
    std::condition_variable mEnded;
    std::list<ConnectionPointer> mConnections GUARDED_BY(mMutex);  // each until its thread ends
    ConnectionPointer mServed GUARDED_BY(mMutex);                  // one of them, or null
    bool mStopping GUARDED_BY(mMutex) = false;

    std::thread mThread;
};

}  // namespace agent
