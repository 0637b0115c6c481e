// The trigger server's socket: connections one after the other, each with any bytes in any pieces.
// A whole command is reported with its port and leaves the server listening; everything else ends
// it.
#include <fuzzer/FuzzedDataProvider.h>

#include <asio/connect.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <csignal>
#include <cstring>

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

// The fuzzer's timer must not interrupt this target's own calls on sockets.
bool restartAfterAlarm() {
    struct sigaction action {};
    sigaction(SIGALRM, nullptr, &action);
    action.sa_flags |= SA_RESTART;
    return sigaction(SIGALRM, &action, nullptr) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using asio::ip::tcp;
    FuzzedDataProvider input(data, size);
    static asio::io_context context;
    static const bool restarting = restartAfterAlarm();  // the fuzzer has set its handler by now
    require(restarting);
    int expected = 0;
    reports = 0;
    {
        WFDTriggerTcpServer server;
        server.setCallback(onTrigger);
        const tcp::endpoint address(asio::ip::address_v4::loopback(),
                                    static_cast<uint16_t>(server.getServerPort()));
        while (expected < 4 && input.remaining_bytes() > 0) {
            const std::string bytes = input.ConsumeRandomLengthString(16);
            const size_t piece = input.ConsumeIntegralInRange<size_t>(1, 5);
            tcp::socket connection(context);
            connection.connect(address);
            connection.set_option(tcp::no_delay(true));
            // Closed with a reset, so that no port is kept for a minute.
            connection.set_option(tcp::socket::linger(true, 0));
            std::error_code gone;
            for (size_t i = 0; i < bytes.size(); i += piece) {
                asio::write(connection, asio::buffer(bytes.substr(i, piece)), gone);
            }
            if (bytes.size() < 4 || bytes[0] != 0 || bytes[1] != 2) break;
            char byte = 0;
            asio::read(connection, asio::buffer(&byte, 1), gone);  // until the server has closed
            require(gone && reports == ++expected);
            const int port = static_cast<uint8_t>(bytes[2]) << 8 | static_cast<uint8_t>(bytes[3]);
            require(reportedPort == port);
        }
    }
    require(reports == expected);
    return 0;
}
