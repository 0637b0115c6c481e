#include "host/session/SessionLink.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "host/text_format.h"

namespace hostplatform {

namespace {

constexpr const char* kSinkLine = "wfd-sink-1";
constexpr size_t kMaxLine = 512;
constexpr uint64_t kConnectLimitMs = 5000;  // device time
constexpr uint64_t kRetryIntervalMs = 100;  // likewise
constexpr int kPollMs = 2;                  // real time between two checks of a limit
constexpr int kMaxPolls = 1000;             // while the other end is silent

sockaddr* generic(sockaddr_in& address) { return reinterpret_cast<sockaddr*>(&address); }

// Close-on-exec: a shell tool that inherited the socket would keep it open.
UniqueFd makeSocket() {
    return UniqueFd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool sendLine(int socket, const std::string& line) {
    const std::string bytes = line + '\n';
    return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

}  // namespace

SessionLink::SessionLink(DeviceCore& core, bool isSource)
    : mCore(core), mIsSource(isSource), mCloseEvent(eventfd(0, EFD_CLOEXEC)) {}

bool SessionLink::open(const std::string& address, int port) {
    mAddress.sin_family = AF_INET;
    mAddress.sin_port = htons(static_cast<uint16_t>(port));
    if (mIsSource) {
        mListener = makeSocket();
        // Reuse the port at once: it may still have old connections.
        const int reuse = 1;
        setsockopt(mListener.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
        if (bind(mListener.get(), generic(mAddress), sizeof mAddress) == 0 &&
            listen(mListener.get(), SOMAXCONN) == 0) {
            journal(format("listening on port %d", port));
            return true;
        }
        mProblem = format("cannot listen on port %d: %s", port, strerror(errno));
    } else {
        const bool isAddress = inet_pton(AF_INET, address.c_str(), &mAddress.sin_addr) == 1;
        if (isAddress && port >= 1 && port <= 65535) return true;
        mProblem = format("there is no source at address \"%s\" port %d", address.c_str(), port);
    }
    journal(mProblem);
    mCore.log.complain((mIsSource ? "source: " : "sink: ") + mProblem);
    return false;
}

std::optional<int> SessionLink::connect(int sessionId) {
    return mIsSource ? acceptSink(sessionId) : reachSource();
}

std::optional<int> SessionLink::acceptSink(int sessionId) {
    while (wait(mListener.get(), POLLIN, {})) {
        socklen_t size = sizeof mAddress;
        UniqueFd socket(
            accept4(mListener.get(), generic(mAddress), &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket) {
            lose(strerror(errno));
            break;
        }
        mInput.clear();
        const auto line =
            readLine(socket.get(), [polls = 0]() mutable { return ++polls > kMaxPolls; });
        if (line == kSinkLine) return establish(std::move(socket), sessionId);
        if (line) mProblem = "it sent \"" + *line + '"';
        if (!ended()) journal(peer() + " is no sink: " + mProblem);
    }
    return std::nullopt;
}

std::optional<int> SessionLink::reachSource() {
    const uint64_t deadline = mCore.clock.milliseconds() + kConnectLimitMs;
    const Late late = [&] { return mCore.clock.milliseconds() >= deadline; };
    std::string reported;
    while (!ended()) {
        UniqueFd socket = makeSocket();
        if (const auto id = handshake(socket.get(), late)) return establish(std::move(socket), *id);
        if (late()) break;
        if (!ended() && mProblem != std::exchange(reported, mProblem)) {
            journal(peer() + " does not answer yet: " + mProblem);
        }
        socket.reset();
        const uint64_t next = mCore.clock.milliseconds() + kRetryIntervalMs;
        wait(-1, 0, [&] { return mCore.clock.milliseconds() >= next; });
    }
    lose("no source answers");
    return std::nullopt;
}

std::optional<int> SessionLink::handshake(int socket, const Late& late) {
    int error = ::connect(socket, generic(mAddress), sizeof mAddress) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        mProblem = strerror(ETIMEDOUT);
        if (!wait(socket, POLLOUT, late)) return std::nullopt;
        socklen_t size = sizeof error;
        getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
    }
    mProblem = strerror(error);
    if (error != 0 || !sendLine(socket, kSinkLine)) return std::nullopt;
    mInput.clear();
    const auto line = readLine(socket, late);
    int id = 0;
    if (line && sscanf(line->c_str(), "session %d", &id) == 1 && id > 0) return id;
    if (line) mProblem = "it sent \"" + *line + '"';
    return std::nullopt;
}

std::optional<int> SessionLink::establish(UniqueFd socket, int sessionId) {
    const Lock lock(mMutex);
    if (mState == State::Ended) return std::nullopt;
    mState = State::Connected;
    mSocket = std::move(socket);
    mListener.reset();
    const int noDelay = 1;  // the lines are short, and each is waited for
    setsockopt(mSocket.get(), IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
    journal(format("connected to %s, session %d", peer().c_str(), sessionId));
    if (mIsSource) sendLine(mSocket.get(), format("session %d", sessionId));
    return sessionId;
}

std::optional<std::string> SessionLink::receive() {
    auto line = readLine(mSocket.get(), {});
    if (line && !ended()) {
        journal("received " + *line);
        return line;
    }
    lose(mProblem);
    // Read the rest first: closing a socket with unread input resets the connection, and the other
    // end loses the lines that it has not read yet.
    pollfd unread{mSocket.get(), POLLIN, 0};
    char bytes[512];
    for (int i = 0; i < kMaxPolls; ++i) {
        if (poll(&unread, 1, kPollMs) > 0 && recv(unread.fd, bytes, sizeof bytes, 0) <= 0) break;
    }
    return std::nullopt;
}

std::optional<std::string> SessionLink::readLine(int socket, const Late& late) {
    while (true) {
        const size_t end = mInput.find('\n');
        if (end != std::string::npos) {
            std::string line = mInput.substr(0, end);
            mInput.erase(0, end + 1);
            return line;
        }
        mProblem = mInput.size() > kMaxLine ? "it sent a line that is too long" : "it is silent";
        if (mInput.size() > kMaxLine || !wait(socket, POLLIN, late)) return std::nullopt;
        char bytes[512];
        const ssize_t size = recv(socket, bytes, sizeof bytes, 0);
        mProblem = size == 0 ? "it closed the connection" : strerror(errno);
        if (size <= 0) return std::nullopt;
        mInput.append(bytes, static_cast<size_t>(size));
    }
}

void SessionLink::lose(const std::string& why) {
    const Lock lock(mMutex);
    if (std::exchange(mState, State::Ended) != State::Ended) journal("lost " + peer() + ": " + why);
}

void SessionLink::send(const std::string& line) {
    const Lock lock(mMutex);
    if (mState != State::Connected) return;
    journal("sent " + line);
    // A line that does not fit into the socket's buffer means that the other end does not read any
    // more.
    if (!sendLine(mSocket.get(), line)) shutdown(mSocket.get(), SHUT_RDWR);
}

void SessionLink::close() {
    const Lock lock(mMutex);
    if (mState == State::Ended) return;
    journal(mState == State::Connected ? "closed" : "closed before it was connected");
    mState = State::Ended;
    // Leave the sockets open: the link's thread may be waiting on them, and closes them at its end.
    shutdown(mListener.get(), SHUT_RDWR);
    shutdown(mSocket.get(), SHUT_WR);
    eventfd_write(mCloseEvent.get(), 1);
}

bool SessionLink::wait(int descriptor, short events, const Late& late) const {
    pollfd waits[] = {{descriptor, events, 0}, {mCloseEvent.get(), POLLIN, 0}};
    do {
        if (poll(waits, 2, late ? kPollMs : -1) > 0) return waits[1].revents == 0;
    } while (!late || !late());
    return false;
}

bool SessionLink::ended() {
    const Lock lock(mMutex);
    return mState == State::Ended;
}

std::string SessionLink::peer() const {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &mAddress.sin_addr, text, sizeof text);
    return format("%s:%u", text, ntohs(mAddress.sin_port));
}

void SessionLink::journal(const std::string& text) {
    mCore.journal.add("link", (mIsSource ? "source: " : "sink: ") + text);
}

}  // namespace hostplatform
