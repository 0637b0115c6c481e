#include "WFDTriggerTcpServer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

#include "WaitableThread.h"
#include "trigger_protocol.h"

namespace {

void closeOwned(std::atomic<int>& descriptor) {
    if (const int owned = descriptor.exchange(-1); owned >= 0) close(owned);
}

}  // namespace

WFDTriggerTcpServer::WFDTriggerTcpServer() noexcept {
    // Close-on-exec: the shell tools that the library runs must not inherit the socket.
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    mSocket = listener;

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        TRIGGER_LOGE("RTP port Bind failed");
    }
    TRIGGER_LOGV("bind ok %d", address.sin_port);

    socklen_t size = sizeof address;
    if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
        mPort = ntohs(address.sin_port);
        TRIGGER_LOGV("TCP Server port Num = %d", mPort);
    } else {
        TRIGGER_LOGE("getsockname error");
    }

    constexpr int kBacklog = 2;
    if (const int result = listen(listener, kBacklog); result != 0) {
        TRIGGER_LOGE("listen error %d %d", result, errno);
    } else {
        TRIGGER_LOGV("listen ok %d", result);
    }

    int error = 0;
    mThread = WaitableThread::start(
        [](void* server) { serverThreadStart(static_cast<WFDTriggerTcpServer*>(server)); }, this,
        &error);
    if (mThread == nullptr) {
        TRIGGER_LOGE("srv: thread error %d", error);
        closeOwned(mSocket);
    }
}

WFDTriggerTcpServer::~WFDTriggerTcpServer() {
    if (mThread == nullptr) return;
    // Take the listener first: the accept thread rechecks mSocket after publishing mConnection, so
    // one side always notices the other.
    const int listener = mSocket.exchange(-1);
    const int connection = mConnection.exchange(-1);
    // shutdown wakes a thread that waits on a socket; close does not.
    for (const int descriptor : {listener, connection}) {
        if (descriptor >= 0) shutdown(descriptor, SHUT_RDWR);
    }
    mThread->wait();
    for (const int descriptor : {listener, connection}) {
        if (descriptor >= 0) close(descriptor);
    }
    delete mThread;
    mThread = nullptr;
}

void WFDTriggerTcpServer::setCallback(TriggerCallback callback) noexcept { mCallback = callback; }

int WFDTriggerTcpServer::getServerPort() noexcept { return mPort; }

void WFDTriggerTcpServer::serverThreadStart(WFDTriggerTcpServer* server) noexcept {
    const int listener = server->mSocket;  // stays open while this thread runs
    bool commandRead = true;
    while (commandRead) {
        // Wait in poll: accept would reserve a descriptor number for the whole wait. poll ignores
        // an invalid descriptor, then accept reports it.
        pollfd waiting{listener, POLLIN, 0};
        if (listener >= 0) TEMP_FAILURE_RETRY(poll(&waiting, 1, -1));
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        const auto connection = static_cast<int>(TEMP_FAILURE_RETRY(
            accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC)));
        if (connection < 0) {
            TRIGGER_LOGE("srv: accept error %d", connection);
            break;
        }
        TRIGGER_LOGV("accept returns %d", connection);
        server->mConnection = connection;
        commandRead = server->mSocket >= 0 && server->serve(connection, &peer);
        closeOwned(server->mConnection);
    }
    closeOwned(server->mSocket);
}

bool WFDTriggerTcpServer::serve(int connection, sockaddr_in* peer) {
    char command[kTriggerCommandSize] = {};
    if (!readRequestConnectionCommand(connection, command)) {
        TRIGGER_LOGE("Failed to read command");
        return false;
    }
    handleRequestConnectionCommand(peer, command);
    return true;
}

bool WFDTriggerTcpServer::readRequestConnectionCommand(int connection, char* command) noexcept {
    if (!readAll(connection, command, kTriggerCommandSize)) {
        TRIGGER_LOGE("Not enough content for request connection command");
        return false;
    }
    if (command[0] != 0 || command[1] != kRequestConnection) {
        TRIGGER_LOGE("Invalid connection request command");
        return false;
    }
    return true;
}

bool WFDTriggerTcpServer::readAll(int connection, char* buffer, int size) noexcept {
    int done = 0;
    while (done < size) {
        const ssize_t result =
            TEMP_FAILURE_RETRY(read(connection, buffer + done, static_cast<size_t>(size - done)));
        if (result <= 0) {
            TRIGGER_LOGE("readAll error %d after read %d bytes", static_cast<int>(result), done);
            return false;
        }
        done += static_cast<int>(result);
    }
    return true;
}

void WFDTriggerTcpServer::handleRequestConnectionCommand(sockaddr_in* peer,
                                                         char* command) noexcept {
    char address[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &peer->sin_addr, address, sizeof address);
    const int port =
        static_cast<uint8_t>(command[2]) << 8 | static_cast<int>(static_cast<uint8_t>(command[3]));
    TRIGGER_LOGV("Request connection to %s:%d", address, port);
    if (const TriggerCallback callback = mCallback; callback != nullptr) callback(address, port);
}
