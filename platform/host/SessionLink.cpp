#include "SessionLink.h"

#include <fcntl.h>

#include <algorithm>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/read_until.hpp>
#include <asio/write.hpp>
#include <utility>

#include "Journal.h"
#include "TextFormat.h"
#include "android/log.h"

namespace hostplatform {

namespace {

using asio::ip::tcp;
using Kind = LinkMessage::Kind;

constexpr std::chrono::seconds kConnectLimit{5};
constexpr std::chrono::seconds kCloseLimit{2};
constexpr std::chrono::milliseconds kRetryInterval{100};
// A sink introduces itself at once, so whoever has been silent the longest is none.
constexpr std::size_t kMaxIntroducing = 16;

std::string toText(const tcp::endpoint& endpoint) {
    return endpoint.address().to_string() + ':' + std::to_string(endpoint.port());
}

// The library starts programs; a socket that one of them inherits stays open after its end here.
template <typename Socket>
void closeOnExec(Socket& socket) {
    fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

template <typename Socket>
void closeQuietly(Socket& socket) {
    std::error_code ignored;
    socket.close(ignored);
}

std::string whyUnread(const std::error_code& error) {
    if (error == asio::error::eof) return "it closed the connection";
    if (error == asio::error::not_found) return "it sent a line that is too long";
    return error.message();
}

std::string quoted(const std::string& line) {
    return '"' + line.substr(0, 80) + (line.size() > 80 ? "..." : "") + '"';
}

}  // namespace

SessionLink::SessionLink(Events events)
    : mEvents(std::move(events)), mAcceptor(mContext), mRetry(mContext), mTimeLimit(mContext) {}

std::error_code SessionLink::listen(uint16_t port, int sessionId) {
    const std::lock_guard lock(mMutex);
    mIsSource = true;
    mSessionId = sessionId;
    try {
        mAcceptor.open(tcp::v4());
        closeOnExec(mAcceptor);
        // The port is free as soon as nobody listens on it, whatever connections it still has.
        mAcceptor.set_option(asio::socket_base::reuse_address(true));
        mAcceptor.bind({tcp::v4(), port});
        mAcceptor.listen();
    } catch (const std::system_error& error) {
        end();
        const std::string text =
            format("cannot listen on port %u: %s", port, error.code().message().c_str());
        journal(text);
        __android_log_print(ANDROID_LOG_ERROR, "hostplatform", "source: %s", text.c_str());
        return error.code();
    }
    journal(format("listening on port %u", port));
    accept();
    return {};
}

std::error_code SessionLink::connect(const std::string& address, int port) {
    const std::lock_guard lock(mMutex);
    std::error_code error;
    const auto parsed = asio::ip::make_address_v4(address, error);
    if (!error && (port < 1 || port > 65535)) error = asio::error::invalid_argument;
    if (error) {
        end();
        const std::string text =
            format("there is no source at address \"%s\" port %d", address.c_str(), port);
        journal(text);
        __android_log_print(ANDROID_LOG_ERROR, "hostplatform", "sink: %s", text.c_str());
        return error;
    }
    mSource = {parsed, static_cast<uint16_t>(port)};
    limitTime(kConnectLimit);
    tryToConnect();
    return {};
}

void SessionLink::send(const LinkMessage& message) {
    const std::lock_guard lock(mMutex);
    if (mState != State::Connected) return;
    journal("sent " + toLine(message));
    enqueue(mConnection, message);
}

void SessionLink::close() {
    const std::lock_guard lock(mMutex);
    if (mState == State::Waiting) {
        journal("closed before it was connected");
        end();
    } else if (mState == State::Connected) {
        journal("closed");
        mState = State::Closing;
        // With something unread on its way here, closing the socket at once would take back what
        // the other end has not read yet.
        limitTime(kCloseLimit);
        if (mConnection->writing.empty()) finishSending();
    }
}

void SessionLink::accept() {
    mAcceptor.async_accept([this](std::error_code error, tcp::socket socket) {
        onAccepted(error, std::move(socket));
    });
}

void SessionLink::onAccepted(std::error_code error, tcp::socket socket) {
    const std::lock_guard lock(mMutex);
    if (mState != State::Waiting) return;
    if (error) {
        journal("cannot accept: " + error.message());
        // Without descriptors the same error comes back at once.
        mRetry.expires_after(kRetryInterval);
        mRetry.async_wait([this](std::error_code cancelled) {
            const std::lock_guard relock(mMutex);
            if (!cancelled && mState == State::Waiting) accept();
        });
        return;
    }
    closeOnExec(socket);
    std::error_code gone;
    const tcp::endpoint peer = socket.remote_endpoint(gone);
    if (!gone) {
        if (mIntroducing.size() == kMaxIntroducing) {
            journal(mIntroducing.front()->peer + " is no sink: it is silent");
            closeQuietly(mIntroducing.front()->socket);
            mIntroducing.pop_front();
        }
        mIntroducing.push_back(std::make_shared<Connection>(std::move(socket), toText(peer)));
        readLine(mIntroducing.back());
    }
    accept();
}

void SessionLink::tryToConnect() {
    mConnection = std::make_shared<Connection>(tcp::socket(mContext), toText(mSource));
    std::error_code error;
    mConnection->socket.open(tcp::v4(), error);
    if (error) {
        tryAgain(error.message());
        return;
    }
    closeOnExec(mConnection->socket);
    mConnection->socket.async_connect(
        mSource, [this, connection = mConnection](std::error_code notConnected) {
            onConnected(connection, notConnected);
        });
}

void SessionLink::onConnected(const ConnectionPointer& connection, std::error_code error) {
    const std::lock_guard lock(mMutex);
    if (mState != State::Waiting) return;
    // A port of this machine that nobody listens on may be the one that the socket itself is given.
    std::error_code unknown;
    if (!error && connection->socket.local_endpoint(unknown) == mSource) {
        error = asio::error::connection_refused;
    }
    if (error) {
        tryAgain(error.message());
        return;
    }
    enqueue(connection, {Kind::Sink, 0, {}});
    readLine(connection);
}

void SessionLink::tryAgain(const std::string& reason) {
    if (reason != std::exchange(mLastReason, reason)) {
        journal(mConnection->peer + " does not answer yet: " + reason);
    }
    closeQuietly(mConnection->socket);
    mRetry.expires_after(kRetryInterval);
    mRetry.async_wait([this](std::error_code cancelled) {
        const std::lock_guard lock(mMutex);
        if (!cancelled && mState == State::Waiting) tryToConnect();
    });
}

void SessionLink::readLine(const ConnectionPointer& connection) {
    asio::async_read_until(connection->socket,
                           asio::dynamic_buffer(connection->input, kMaxLinkLine), '\n',
                           [this, connection](std::error_code error, std::size_t size) {
                               onRead(connection, error, size);
                           });
}

void SessionLink::onRead(const ConnectionPointer& connection, std::error_code error,
                         std::size_t size) {
    std::unique_lock lock(mMutex);
    if (!connection->socket.is_open()) return;
    if (mState == State::Closing && error) {
        end();
        return;
    }
    std::string line;
    if (!error) {
        line = connection->input.substr(0, size - 1);
        connection->input.erase(0, size);
    }
    const auto message = error ? std::nullopt : parseLinkLine(line);
    const std::string wrong = error ? whyUnread(error) : "it sent " + quoted(line);
    if (mState == State::Waiting) {
        onIntroduction(lock, connection, message, wrong);
        return;
    }
    if (mState == State::Connected) {
        const bool expected = message && message->kind != Kind::Sink &&
                              message->kind != Kind::Session &&
                              (message->kind != Kind::Input || mIsSource);
        if (!expected) {
            lose(lock, wrong);
            return;
        }
        journal("received " + line);
        lock.unlock();
        mEvents.received(*this, *message);
        lock.lock();
    }
    if (mState != State::Ended) readLine(connection);
}

void SessionLink::onIntroduction(std::unique_lock<std::mutex>& lock,
                                 const ConnectionPointer& connection,
                                 const std::optional<LinkMessage>& message,
                                 const std::string& wrong) {
    if (message && message->kind == (mIsSource ? Kind::Sink : Kind::Session)) {
        stand(lock, connection, mIsSource ? mSessionId : message->sessionId);
    } else if (mIsSource) {
        journal(connection->peer + " is no sink: " + wrong);
        closeQuietly(connection->socket);
        mIntroducing.erase(std::find(mIntroducing.begin(), mIntroducing.end(), connection));
    } else {
        tryAgain(wrong);
    }
}

void SessionLink::stand(std::unique_lock<std::mutex>& lock, const ConnectionPointer& connection,
                        int sessionId) {
    mState = State::Connected;
    mConnection = connection;
    mIntroducing.erase(std::remove(mIntroducing.begin(), mIntroducing.end(), connection),
                       mIntroducing.end());
    closeWaiting();
    // The lines are short and each is waited for.
    std::error_code ignored;
    connection->socket.set_option(tcp::no_delay(true), ignored);
    journal(format("connected to %s, session %d", connection->peer.c_str(), sessionId));
    if (mIsSource) enqueue(connection, {Kind::Session, sessionId, {}});
    lock.unlock();
    mEvents.connected(*this, sessionId);
    lock.lock();
    if (mState != State::Ended) readLine(connection);
}

void SessionLink::lose(std::unique_lock<std::mutex>& lock, const std::string& why) {
    journal("lost " + (mConnection ? mConnection->peer : std::string()) + ": " + why);
    end();
    lock.unlock();
    mEvents.lost(*this);
}

void SessionLink::enqueue(const ConnectionPointer& connection, const LinkMessage& message) {
    connection->outgoing += toLine(message) + '\n';
    write(connection);
}

void SessionLink::write(const ConnectionPointer& connection) {
    if (!connection->writing.empty() || connection->outgoing.empty()) return;
    connection->writing = std::exchange(connection->outgoing, {});
    asio::async_write(
        connection->socket, asio::buffer(connection->writing),
        [this, connection](std::error_code error, std::size_t) { onWritten(connection, error); });
}

void SessionLink::onWritten(const ConnectionPointer& connection, std::error_code error) {
    const std::lock_guard lock(mMutex);
    connection->writing.clear();
    // What cannot be written to cannot be read from either, and its reader says so.
    if (error || !connection->socket.is_open()) return;
    write(connection);
    if (mState == State::Closing && connection->writing.empty()) finishSending();
}

void SessionLink::finishSending() {
    std::error_code ignored;
    mConnection->socket.shutdown(tcp::socket::shutdown_send, ignored);
}

void SessionLink::limitTime(std::chrono::seconds limit) {
    mTimeLimit.expires_after(limit);
    mTimeLimit.async_wait([this](std::error_code cancelled) {
        if (!cancelled) onTimeLimit();
    });
}

void SessionLink::onTimeLimit() {
    std::unique_lock lock(mMutex);
    if (mState == State::Waiting) {
        lose(lock, "no source answers");
    } else if (mState == State::Closing) {
        end();
    }
}

// Nobody else is waited for.
void SessionLink::closeWaiting() {
    closeQuietly(mAcceptor);
    for (const ConnectionPointer& connection : mIntroducing) closeQuietly(connection->socket);
    mIntroducing.clear();
    mRetry.cancel();
    mTimeLimit.cancel();
}

void SessionLink::end() {
    mState = State::Ended;
    closeWaiting();
    if (mConnection) closeQuietly(mConnection->socket);
}

void SessionLink::journal(const std::string& text) const {
    Journal::instance().add("link", (mIsSource ? "source: " : "sink: ") + text);
}

}  // namespace hostplatform
