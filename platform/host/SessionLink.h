// The connection that a session of two simulated devices runs over, in place of RTSP: TCP, with the
// lines of LinkMessage.h. The source listens, the sink connects; the link stands once the sink has
// said that it is one and the source has answered with the session's identifier.
//
// Use: construct, listen() or connect(), then run() on a thread of the caller's. Each link connects
// at most once. What it does stands in the journal ("link").
//
// Time here is real time: the peer is another process with a device time of its own.
//
// Threads: run() belongs to one thread, on which the events are called; the other functions may be
// called on any thread, also inside an event. They do not block, and events are called with no lock
// of the link held. The link must outlive run().
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "LinkMessage.h"

namespace hostplatform {

class SessionLink {
 public:
    struct Events {
        // The link stands; the identifier is the one that the source chose. First of all events.
        std::function<void(const SessionLink&, int sessionId)> connected;
        // The other end sent Pause, Play, Standby or Teardown, or to a source Input.
        std::function<void(const SessionLink&, const LinkMessage&)> received;
        // The other end was not reached, is gone, or sent something that is no message. Last of all
        // events; not called after close().
        std::function<void(const SessionLink&)> lost;
    };

    explicit SessionLink(Events events);
    SessionLink(const SessionLink&) = delete;
    SessionLink& operator=(const SessionLink&) = delete;

    // The source's side: waits for a sink on `port` of every local IPv4 address, as long as it
    // takes. Who connects and does not introduce itself as a sink is passed over.
    std::error_code listen(uint16_t port, int sessionId);

    // The sink's side. A sink may be told to connect before its source listens, so it tries again
    // and again for 5 seconds.
    std::error_code connect(const std::string& address, int port);

    // Returns when the link has been closed or lost.
    void run() { mContext.run(); }

    // Nothing is sent unless the link stands.
    void send(const LinkMessage& message);

    // Ends the link; what was sent still gets through. A listening port is free on return.
    void close();

 private:
    struct Connection {
        Connection(asio::ip::tcp::socket connected, std::string name)
            : socket(std::move(connected)), peer(std::move(name)) {}
        asio::ip::tcp::socket socket;
        std::string peer;      // its address and port
        std::string input;     // not yet taken as lines
        std::string outgoing;  // not yet handed to the socket
        std::string writing;   // being written
    };
    using ConnectionPointer = std::shared_ptr<Connection>;

    enum class State {
        Waiting,    // for the sink, or for the source to answer
        Connected,  // the link stands
        Closing,    // what was sent goes out, until the other end has closed as well
        Ended,      // no socket is left
    };

    // These lock mMutex themselves.
    void onAccepted(std::error_code error, asio::ip::tcp::socket socket);
    void onConnected(const ConnectionPointer& connection, std::error_code error);
    void onRead(const ConnectionPointer& connection, std::error_code error, std::size_t size);
    void onWritten(const ConnectionPointer& connection, std::error_code error);
    void onTimeLimit();

    // These are called with mMutex held.
    void accept();
    void tryToConnect();
    void tryAgain(const std::string& reason);
    void readLine(const ConnectionPointer& connection);
    void enqueue(const ConnectionPointer& connection, const LinkMessage& message);
    void write(const ConnectionPointer& connection);
    void finishSending();
    void limitTime(std::chrono::seconds limit);
    void closeWaiting();
    void end();

    // As onRead, for a connection on which the link does not stand yet.
    void onIntroduction(std::unique_lock<std::mutex>& lock, const ConnectionPointer& connection,
                        const std::optional<LinkMessage>& message, const std::string& wrong);
    void stand(std::unique_lock<std::mutex>& lock, const ConnectionPointer& connection,
               int sessionId);
    void lose(std::unique_lock<std::mutex>& lock, const std::string& why);
    void journal(const std::string& text) const;

    const Events mEvents;
    asio::io_context mContext{1};

    std::mutex mMutex;  // guards everything below
    State mState = State::Waiting;
    bool mIsSource = false;
    int mSessionId = 0;                          // of a source
    asio::ip::tcp::acceptor mAcceptor;           // of a source
    std::deque<ConnectionPointer> mIntroducing;  // to a source; each may turn out to be the sink
    asio::ip::tcp::endpoint mSource;             // of a sink
    std::string mLastReason;                     // of a sink to try again
    ConnectionPointer mConnection;               // with the other end
    asio::steady_timer mRetry;
    asio::steady_timer mTimeLimit;
};

}  // namespace hostplatform
