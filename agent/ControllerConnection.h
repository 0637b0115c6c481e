// The conversation with one controller over TCP.
#pragma once

#include <array>
#include <asio/cancellation_signal.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "CommandRunner.h"
#include "CommandThread.h"
#include "LineSplitter.h"

namespace agent {

// Reads command lines, has one after the other carried out on the command thread, and answers them
// in order. Commands are read ahead while one runs, so that the controller's end is noticed; past a
// bound TCP holds the controller back. Answers are never piled up: a command starts when the answer
// to the one before is on its way.
//
// Once the controller has ended its sending side, what it sent is still carried out and answered,
// and then the connection is closed. When it cannot be written to any more, the commands that have
// not been started are dropped.
//
// The object keeps itself alive as long as the conversation lasts. All functions belong to the
// thread that runs the socket's executor.
class ControllerConnection : public std::enable_shared_from_this<ControllerConnection> {
 public:
    // `commands` and `runner` must outlive the conversation.
    ControllerConnection(asio::ip::tcp::socket socket, std::string peer, CommandThread& commands,
                         const CommandRunner& runner);

    void start();

    // The agent ends: the running command is still answered, the rest is dropped.
    void stop();

    // False once the controller has ended its sending side, also when that end has not been read.
    bool isConnected();

    const std::string& peer() const { return mPeer; }

 private:
    void read();
    void onRead(std::error_code error, std::size_t size);
    void enqueue(Line line);
    void dropQueued(const std::string& why);
    void proceed();
    void startCommand();
    void onAnswer(const std::optional<std::string>& answer);
    void limitWriting();
    void send(const std::string& line);
    void write();

    asio::ip::tcp::socket mSocket;
    const std::string mPeer;
    asio::steady_timer mWriteLimit;  // when the agent ends
    CommandThread& mCommands;
    const CommandRunner& mRunner;

    LineSplitter mSplitter;
    std::array<char, 16384> mReadBuffer{};
    asio::cancellation_signal mCancelRead;
    bool mReading = false;     // a read is in progress
    bool mInputEnded = false;  // nothing more is read
    std::deque<Line> mQueue;   // not yet started
    std::size_t mQueuedBytes = 0;

    bool mRunning = false;  // a command is with the command thread
    std::string mOutgoing;  // answers not yet handed to the socket
    std::string mWriting;   // being written
    bool mBroken = false;   // nothing can be written any more
    bool mStopping = false;
    bool mLingering = false;  // when closing
};

}  // namespace agent
