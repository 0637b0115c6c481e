#include "ControllerServer.h"

#include <fcntl.h>

#include <algorithm>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <sstream>
#include <string>
#include <utility>

#include "LingeringClose.h"
#include "Log.h"
#include "StartError.h"

namespace agent {

namespace {

using asio::ip::tcp;

// Conversations whose controller has ended its sending side but whose commands are not done yet.
constexpr std::size_t kMaxUnfinished = 16;

constexpr char kBusy[] = "status,ERROR,errorCode,-1\r\n";

std::string toText(const tcp::endpoint& endpoint) {
    std::ostringstream text;
    text << endpoint;
    return text.str();
}

// The library starts programs; a socket that one of them inherits stays open after its end here.
template <typename Socket>
void closeOnExec(Socket& socket) {
    fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

}  // namespace

ControllerServer::ControllerServer(asio::io_context& context, const tcp::endpoint& endpoint,
                                   CommandThread& commands, const CommandRunner& runner)
    : mAcceptor(context), mRetry(context), mCommands(commands), mRunner(runner) {
    try {
        mAcceptor.open(endpoint.protocol());
        closeOnExec(mAcceptor);
        mAcceptor.set_option(asio::socket_base::reuse_address(true));
        mAcceptor.bind(endpoint);
        mAcceptor.listen();
    } catch (const std::system_error& error) {
        throw StartError("cannot listen on " + toText(endpoint) + ": " + error.code().message());
    }
    logLine("listening on " + toText(mAcceptor.local_endpoint()));
}

void ControllerServer::start() { accept(); }

void ControllerServer::stop() {
    std::error_code ignored;
    mAcceptor.close(ignored);
    mRetry.cancel();
    for (const auto& weak : mConnections) {
        if (const auto connection = weak.lock()) connection->stop();
    }
}

void ControllerServer::accept() {
    mAcceptor.async_accept([this](std::error_code error, tcp::socket socket) {
        onAccepted(error, std::move(socket));
    });
}

void ControllerServer::onAccepted(std::error_code error, tcp::socket socket) {
    if (!mAcceptor.is_open()) return;
    if (error) {
        logLine("cannot accept a controller: " + error.message());
        // Without descriptors the same error comes back at once.
        mRetry.expires_after(std::chrono::milliseconds(500));
        mRetry.async_wait([this](std::error_code cancelled) {
            if (!cancelled) accept();
        });
        return;
    }
    closeOnExec(socket);
    std::error_code gone;
    const std::string peer = toText(socket.remote_endpoint(gone));
    if (!gone && hasRoom()) {
        const auto connection =
            std::make_shared<ControllerConnection>(std::move(socket), peer, mCommands, mRunner);
        mConnections.push_back(connection);
        connection->start();
    } else if (!gone) {
        logLine("controller " + peer + " is refused: another one is connected");
        refuse(std::move(socket));
    }
    accept();
}

bool ControllerServer::hasRoom() {
    mConnections.erase(std::remove_if(mConnections.begin(), mConnections.end(),
                                      [](const auto& weak) { return weak.expired(); }),
                       mConnections.end());
    return mConnections.size() < kMaxUnfinished &&
           std::none_of(mConnections.begin(), mConnections.end(), [](const auto& weak) {
               const auto connection = weak.lock();
               return connection != nullptr && connection->isConnected();
           });
}

void ControllerServer::refuse(tcp::socket socket) {
    const auto kept = std::make_shared<tcp::socket>(std::move(socket));
    asio::async_write(*kept, asio::buffer(kBusy, sizeof kBusy - 1),
                      [kept](std::error_code error, std::size_t) {
                          if (!error) closeLingering(std::move(*kept));
                      });
}

}  // namespace agent
