#include "agent/ControllerServer.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <array>
#include <asio/buffer.hpp>
#include <atomic>
#include <chrono>
#include <deque>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "agent/LineSplitter.h"
#include "agent/Log.h"
#include "agent/Text.h"
#include "agent/status.h"

namespace agent {

namespace {

using asio::ip::tcp;

std::string toText(const tcp::endpoint& endpoint) {
    std::ostringstream text;
    text << endpoint;
    return text.str();
}

// The library starts programs; a socket that one of them inherits would stay open after its end
// here.
template <typename Socket>
void closeOnExec(Socket& socket) {
    fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

}  // namespace

class ControllerServer::Connection {
 public:
    explicit Connection(tcp::socket socket) : mSocket(std::move(socket)) {
        std::error_code ignored;
        mPeer = mSocket.remote_endpoint(ignored);
        // Two short lines per command would otherwise wait for the peer's delayed acknowledgement.
        mSocket.set_option(tcp::no_delay(true), ignored);
        // A controller that lost its power must not keep the next one out for ever.
        mSocket.set_option(asio::socket_base::keep_alive(true), ignored);
        // Nor one that does not read keep the agent from its end.
        const timeval limit{10, 0};
        setsockopt(mSocket.native_handle(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    }

    asio::ip::address address() const { return mPeer.address(); }
    void say(const std::string& text) const { logLine("controller " + toText(mPeer) + ' ' + text); }

    // On the connection's own thread. Nothing is read while a command runs, so TCP holds a
    // controller back that sends more.
    void serve(CommandRunner& runner) {
        Line line;
        while (readLine(line) && write(kRunning)) {
            const hostplatform::Lock turn(runner.turn());
            if (mEnding) {
                mLines.push_front(line);
                break;
            }
            const std::string answer = runner.run(line, false);
            if (mReplaced) say("is gone, its answer is dropped: " + answer);
            if (mReplaced || !write(answer)) break;
            runner.traceDevice();
        }
        if (!mLines.empty()) {
            say("has left, " + std::to_string(mLines.size()) + " queued commands are dropped");
        }
    }

    // The same for one that comes while another is served.
    void refuse() {
        Line line;
        if (readLine(line) && write(kRunning)) write(kError);
    }

    // These two on any thread: no further command is started. With endReading() the answer to the
    // one in progress is still sent.
    void endReading() { shutDown(SHUT_RD); }
    void replace() {
        mReplaced = true;
        shutDown(SHUT_RDWR);
    }

 private:
    // The next line that is not blank; false when none is to be carried out any more.
    bool readLine(Line& line) {
        do {
            while (mLines.empty()) {
                std::error_code error;
                const std::size_t size = mSocket.read_some(asio::buffer(mBytes), error);
                for (Line& read : mSplitter.feed(std::string_view(mBytes.data(), size))) {
                    mLines.push_back(std::move(read));
                }
                if (error) {
                    if (const auto rest = mSplitter.finish()) {
                        say("sent no end of its last line: \"" + printable(rest->text) + '"');
                    }
                    return false;
                }
            }
            if (mEnding) return false;
            line = std::move(mLines.front());
            mLines.pop_front();
        } while (line.fault == nullptr && trimmed(line.text).empty());
        return true;
    }

    bool write(const std::string& line) {
        const std::string bytes = line + "\r\n";
        return send(mSocket.native_handle(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }

    void shutDown(int side) {
        mEnding = true;
        ::shutdown(mSocket.native_handle(), side);
    }

    tcp::socket mSocket;
    tcp::endpoint mPeer;
    std::atomic<bool> mEnding{false};
    std::atomic<bool> mReplaced{false};

    // Of the connection's thread:
    LineSplitter mSplitter;
    std::array<char, 4096> mBytes{};
    std::deque<Line> mLines;
};

ControllerServer::ControllerServer(const tcp::endpoint& endpoint, CommandRunner& runner,
                                   std::function<void()> onController)
    : mRunner(runner), mOnController(std::move(onController)), mAcceptor(mContext) {
    try {
        mAcceptor.open(endpoint.protocol());
        closeOnExec(mAcceptor);
        mAcceptor.set_option(asio::socket_base::reuse_address(true));
        mAcceptor.bind(endpoint);
        mAcceptor.listen();
    } catch (const std::system_error& error) {
        throw std::runtime_error("cannot listen on " + toText(endpoint) + ": " +
                                 error.code().message());
    }
    logLine("listening on " + toText(mAcceptor.local_endpoint()));
    mThread = std::thread([this] { acceptAll(); });
}

ControllerServer::~ControllerServer() {
    hostplatform::Lock lock(mMutex);
    mStopping = true;
    // Wakes the accepting thread, which closing alone would not.
    ::shutdown(mAcceptor.native_handle(), SHUT_RDWR);
    for (const auto& connection : mConnections) connection->endReading();
    while (!mConnections.empty()) mEnded.wait(lock);
    lock.unlock();
    mThread.join();
}

void ControllerServer::acceptAll() {
    while (true) {
        std::error_code error;
        tcp::socket socket = mAcceptor.accept(error);
        {
            const hostplatform::Lock lock(mMutex);
            if (mStopping) return;
            if (!error) error = take(std::move(socket));
        }
        if (!error) {
            mOnController();
            continue;
        }
        logLine("cannot serve a controller: " + error.message());
        // Without descriptors the same error comes back at once.
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
}

std::error_code ControllerServer::take(tcp::socket socket) {
    closeOnExec(socket);
    const auto connection = std::make_shared<Connection>(std::move(socket));
    const bool refused = mServed && mServed->address() != connection->address();
    try {
        std::thread([this, connection = ConnectionPointer(connection), refused]() mutable {
            serve(std::move(connection), refused);
        }).detach();
    } catch (const std::system_error& noThread) {
        return noThread.code();
    }
    mConnections.push_back(connection);
    if (refused) {
        connection->say("is refused: another one is served");
        return {};
    }
    connection->say(mServed ? "takes the place of the one before" : "connected");
    if (mServed) mServed->replace();
    mServed = connection;
    return {};
}

// The body of a connection's thread.
void ControllerServer::serve(ConnectionPointer connection, bool refused) {
    if (refused) {
        connection->refuse();
    } else {
        connection->serve(mRunner);
    }
    connection->say("is disconnected");
    const hostplatform::Lock lock(mMutex);
    if (mServed == connection) mServed.reset();
    mConnections.remove(connection);
    connection.reset();  // the server may be gone once its destructor sees the list empty
    mEnded.notify_all();
}

}  // namespace agent
