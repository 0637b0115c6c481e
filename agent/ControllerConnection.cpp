#include "ControllerConnection.h"

#include <poll.h>

#include <asio/bind_cancellation_slot.hpp>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <string_view>
#include <utility>

#include "LingeringClose.h"
#include "Log.h"
#include "Text.h"

namespace agent {

namespace {

constexpr std::size_t kMaxQueuedBytes = 1'048'576;

std::size_t cost(const Line& line) { return sizeof(Line) + line.text.size(); }

}  // namespace

ControllerConnection::ControllerConnection(asio::ip::tcp::socket socket, std::string peer,
                                           CommandThread& commands, const CommandRunner& runner)
    : mSocket(std::move(socket)),
      mPeer(std::move(peer)),
      mWriteLimit(mSocket.get_executor()),
      mCommands(commands),
      mRunner(runner) {}

void ControllerConnection::start() {
    std::error_code ignored;
    // Two short lines per command would otherwise wait for the peer's delayed acknowledgement.
    mSocket.set_option(asio::ip::tcp::no_delay(true), ignored);
    // A controller that lost its power must not keep the next one out for ever.
    mSocket.set_option(asio::socket_base::keep_alive(true), ignored);
    logLine("controller " + mPeer + " connected");
    read();
}

void ControllerConnection::stop() {
    mStopping = true;
    mInputEnded = true;
    // To a controller that waits for nothing there is nothing to lose.
    mLingering = mRunning || !mWriting.empty() || !mQueue.empty();
    // A socket has one reader at a time: with two, the end wakes only the first.
    mCancelRead.emit(asio::cancellation_type::terminal);
    dropQueued("the agent ends");
    limitWriting();
    proceed();
}

bool ControllerConnection::isConnected() {
    if (mInputEnded || mBroken) return false;
    // A controller that reconnects is quick: its new connection may be accepted before the end of
    // the old one has been read.
    pollfd state{mSocket.native_handle(), POLLRDHUP, 0};
    return poll(&state, 1, 0) <= 0;
}

void ControllerConnection::read() {
    if (mReading || mInputEnded || mQueuedBytes >= kMaxQueuedBytes) return;
    mReading = true;
    mSocket.async_read_some(asio::buffer(mReadBuffer),
                            asio::bind_cancellation_slot(
                                mCancelRead.slot(), [self = shared_from_this()](
                                                        std::error_code error, std::size_t size) {
                                    self->mReading = false;
                                    self->onRead(error, size);
                                }));
}

void ControllerConnection::onRead(std::error_code error, std::size_t size) {
    if (mInputEnded) return;
    for (Line& line : mSplitter.feed(std::string_view(mReadBuffer.data(), size))) {
        enqueue(std::move(line));
    }
    if (error) {
        mInputEnded = true;
        logLine("controller " + mPeer + " left");
        if (const auto rest = mSplitter.finish()) {
            logLine("its last line has no end and is dropped: \"" + printable(rest->text) + '"');
        }
        // Only after an orderly end can the controller still be listening.
        if (error != asio::error::eof) {
            mBroken = true;
            dropQueued("the connection broke");
        }
    }
    proceed();
    read();
}

void ControllerConnection::enqueue(Line line) {
    if (line.kind == Line::Kind::Text && trimmed(line.text).empty()) return;
    mQueuedBytes += cost(line);
    mQueue.push_back(std::move(line));
}

void ControllerConnection::dropQueued(const std::string& why) {
    if (!mQueue.empty()) {
        logLine("controller " + mPeer + ": " + why + ", " + std::to_string(mQueue.size()) +
                " queued commands are dropped");
    }
    mQueue.clear();
    mQueuedBytes = 0;
}

// Does what comes next once nothing is running and everything has been written.
void ControllerConnection::proceed() {
    if (mRunning || !mWriting.empty() || !mSocket.is_open()) return;
    if (!mQueue.empty()) {
        startCommand();
        read();  // there may be room again
    } else if (mInputEnded) {
        mWriteLimit.cancel();
        if (mLingering && !mBroken) {
            closeLingering(std::move(mSocket));
        } else {
            std::error_code ignored;
            mSocket.close(ignored);
        }
    }
}

void ControllerConnection::startCommand() {
    const Line line = std::move(mQueue.front());
    mQueue.pop_front();
    mQueuedBytes -= cost(line);
    mRunning = true;
    auto command = mRunner.accept(line);
    if (command) send(kRunning);
    // The guard lets the executor wait for the answer even when there is nothing else to do.
    mCommands.post(
        line, std::move(command), false,
        [self = shared_from_this(), guard = asio::make_work_guard(mSocket.get_executor())](
            const std::optional<std::string>& answer) {
            asio::post(guard.get_executor(), [self, answer] { self->onAnswer(answer); });
        });
}

void ControllerConnection::onAnswer(const std::optional<std::string>& answer) {
    mRunning = false;
    if (answer) send(*answer);
    if (mStopping) limitWriting();
    proceed();
}

// A controller that does not read its last answer must not keep the agent from ending.
void ControllerConnection::limitWriting() {
    if (mWriting.empty()) return;
    mWriteLimit.expires_after(std::chrono::seconds(2));
    mWriteLimit.async_wait([self = shared_from_this()](std::error_code waited) {
        std::error_code ignored;
        if (!waited) self->mSocket.close(ignored);
    });
}

void ControllerConnection::send(const std::string& line) {
    if (mBroken) return;
    mOutgoing += line + "\r\n";
    write();
}

void ControllerConnection::write() {
    if (!mWriting.empty() || mOutgoing.empty()) return;
    mWriting = std::exchange(mOutgoing, {});
    asio::async_write(mSocket, asio::buffer(mWriting),
                      [self = shared_from_this()](std::error_code error, std::size_t) {
                          self->mWriting.clear();
                          if (error && !self->mBroken) {
                              self->mBroken = true;
                              self->mInputEnded = true;
                              self->mOutgoing.clear();
                              self->dropQueued("it cannot be answered any more");
                          }
                          self->write();
                          self->proceed();
                      });
}

}  // namespace agent
