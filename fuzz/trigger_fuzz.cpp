// The trigger server's socket: connections one after the other, each with any bytes in any pieces.
// A whole command is reported with its port and leaves the server listening; everything else ends
// it.
#include <arpa/inet.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzDevice.h"
#include "WFDTriggerTcpServer.h"

namespace {

std::atomic<int> reports{0};
std::atomic<int> reportedPort{-1};

void onTrigger(const char* peerAddress, int port) {
    require(strcmp(peerAddress, "127.0.0.1") == 0);
    reportedPort = port;
    ++reports;
}

// Closed with a reset, so that no port is kept for a minute.
class Connection {
 public:
    explicit Connection(int port) : mSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int on = 1;
        const linger reset{1, 0};
        const timeval limit{10, 0};
        setsockopt(mSocket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        setsockopt(mSocket, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        setsockopt(mSocket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        // The fuzzer's clock interrupts; a connection goes on being made then.
        if (connect(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            require(errno == EINTR);
            pollfd made{mSocket, POLLOUT, 0};
            require(TEMP_FAILURE_RETRY(poll(&made, 1, 10'000)) == 1);
        }
    }
    ~Connection() { close(mSocket); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void send(const std::string& bytes) const {
        (void)!TEMP_FAILURE_RETRY(::send(mSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    // Until the server has closed the connection.
    void waitEnd() const {
        char byte = 0;
        errno = 0;
        require(TEMP_FAILURE_RETRY(read(mSocket, &byte, 1)) <= 0 && errno != EAGAIN);
    }

 private:
    const int mSocket;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    reports = 0;
    int expected = 0;
    {
        WFDTriggerTcpServer server;
        server.setCallback(onTrigger);
        while (expected < 4 && input.remaining_bytes() > 0) {
            const std::string bytes = input.ConsumeRandomLengthString(16);
            const size_t piece = input.ConsumeIntegralInRange<size_t>(1, 5);
            const Connection connection(server.getServerPort());
            for (size_t i = 0; i < bytes.size(); i += piece)
                connection.send(bytes.substr(i, piece));
            const bool whole = bytes.size() >= 4 && bytes[0] == 0 && bytes[1] == 2;
            if (!whole) break;
            connection.waitEnd();
            require(reports == ++expected);
            const int port = static_cast<uint8_t>(bytes[2]) << 8 | static_cast<uint8_t>(bytes[3]);
            require(reportedPort == port);
        }
    }
    require(reports == expected);
    return 0;
}
