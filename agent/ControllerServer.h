// The TCP server for controllers.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <memory>
#include <system_error>
#include <vector>

#include "CommandRunner.h"
#include "CommandThread.h"
#include "ControllerConnection.h"

namespace agent {

// Serves one connected controller at a time; another one is told status,ERROR,errorCode,-1 and sent
// away. A controller that has ended its sending side, but whose commands still run, does not keep
// the next one out. All functions belong to the thread that runs `context`.
class ControllerServer {
 public:
    // Listens on `endpoint`, a port of 0 being any free one, and says on standard error where.
    // Throws StartError when that is not possible. All arguments must outlive the server and every
    // handler of `context`.
    ControllerServer(asio::io_context& context, const asio::ip::tcp::endpoint& endpoint,
                     CommandThread& commands, const CommandRunner& runner);

    void start();

    // Accepts nobody any more and lets the conversations end; `context` runs out of work after
    // that.
    void stop();

 private:
    void accept();
    void onAccepted(std::error_code error, asio::ip::tcp::socket socket);
    bool hasRoom();
    void refuse(asio::ip::tcp::socket socket);

    asio::ip::tcp::acceptor mAcceptor;
    asio::steady_timer mRetry;
    CommandThread& mCommands;
    const CommandRunner& mRunner;
    std::vector<std::weak_ptr<ControllerConnection>> mConnections;
};

}  // namespace agent
