// The connection between the sessions of two simulated devices, in place of RTSP: ASCII lines over
// TCP, each ended by LF.
//
//     wfd-sink-1           the sink's first line
//     session 10000001     the source's answer: the identifier of the session
//     pause  play  standby  teardown
//     input 0100...        an event of the sink's user, as text of user_input.h
//
// Usage. Construct it, call open(), then on a thread of the caller connect() and receive() until
// one of them returns no value. A link connects at most once. It adds its steps to the journal
// ("link").
//
// Threads. The link's thread calls connect(), receive() and lose(). Any thread may call send() and
// close(), which do not block.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "host/DeviceCore.h"
#include "host/Mutex.h"
#include "host/UniqueFd.h"

namespace hostplatform {

class SessionLink {
 public:
    SessionLink(DeviceCore& core, bool isSource);

    // Prepares the link: a source listens on `port` of every local IPv4 address, a sink will
    // connect to the source at `address` and `port`. If that is impossible, complains and returns
    // false.
    bool open(const std::string& address, int port);

    // Waits for the connection and returns the session's identifier. A source accepts the first
    // connection that identifies itself as a sink's and sends it `sessionId`. A sink tries for 5
    // seconds of device time, since its source may not listen yet, and returns the identifier that
    // it receives. No value when closed or lost.
    std::optional<int> connect(int sessionId);

    // Waits for the next line, without its end; no value when closed or lost.
    std::optional<std::string> receive();

    // Ends a link that the other end broke, unless it has ended already.
    void lose(const std::string& why);

    // Sends nothing unless the link is connected.
    void send(const std::string& line);

    // Ends the link: connect() and receive() return, sent lines still arrive, and a source's port
    // is free on return.
    void close();

 private:
    enum class State { Connecting, Connected, Ended };
    using Late = std::function<bool()>;

    std::optional<int> acceptSink(int sessionId);
    std::optional<int> reachSource();
    // Connects to the source and returns the identifier that it sends. Without one sets mProblem.
    std::optional<int> handshake(int socket, const Late& late);
    std::optional<int> establish(UniqueFd socket, int sessionId);
    std::optional<std::string> readLine(int socket, const Late& late);
    // Waits until the descriptor is ready; returns false after close() or once `late` returns true.
    bool wait(int descriptor, short events, const Late& late) const;
    bool ended();
    std::string peer() const;
    void journal(const std::string& text);

    DeviceCore& mCore;
    const bool mIsSource;
    const UniqueFd mCloseEvent;  // readable once close() has been called

    // Used by the link's thread, and before it runs by the thread that made the link.
    sockaddr_in mAddress{};  // of the other end; a source's own before it is connected
    std::string mInput;      // received, not yet returned as lines
    std::string mProblem;    // why the last attempt failed

    Mutex mMutex;  // guards the state, and the making and closing of both sockets
    State mState GUARDED_BY(mMutex) = State::Connecting;
    UniqueFd mListener;  // of a source that is not connected
    UniqueFd mSocket;    // once connected
};

}  // namespace hostplatform
