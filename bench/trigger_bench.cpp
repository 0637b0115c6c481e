// The trigger, over the loopback interface.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "Arrivals.h"
#include "Benchmarks.h"
#include "WFDTriggerTcpClient.h"
#include "WFDTriggerTcpServer.h"

namespace {

using benchmark::State;

constexpr int kPort = 7236;  // what is asked for; nobody connects to it
constexpr size_t kCommandSize = 4;

// One for both servers: a trigger callback has no context.
Arrivals arrivals;

void triggered(const char* /*address*/, int port) {
    if (port == kPort) arrivals.arrived();
}

class BareServer {
 public:
    BareServer() : mListener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        socklen_t size = sizeof address;
        if (bind(mListener, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
            listen(mListener, 2) != 0 ||
            getsockname(mListener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            return;
        }
        mPort = ntohs(address.sin_port);
        mThread = std::thread([this] { run(); });
    }
    ~BareServer() {
        shutdown(mListener, SHUT_RDWR);
        if (mThread.joinable()) mThread.join();
        close(mListener);
    }
    BareServer(const BareServer&) = delete;
    BareServer& operator=(const BareServer&) = delete;

    int port() const { return mPort; }

 private:
    void run() const {
        while (true) {
            const int connection = accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0) return;
            unsigned char command[kCommandSize];
            if (read(connection, command, sizeof command) == sizeof command) {
                triggered(nullptr, command[2] << 8 | command[3]);
            }
            close(connection);
        }
    }

    const int mListener;
    int mPort = -1;
    std::thread mThread;
};

// `Client` connects and sends; its connection is closed when it goes.
template <typename Client>
void measure(State& state, int port) {
    bool asleep = false;  // known once the thread has brought one
    while (state.KeepRunning()) {
        if (asleep) arrivals.waitAsleep();
        arrivals.expect(1);
        const auto begin = Arrivals::Clock::now();
        const Client client(port);
        state.SetIterationTime(seconds(arrivals.wait() - begin));
        asleep = true;
    }
}

class OurClient {
 public:
    explicit OurClient(int port) : mClient("127.0.0.1", port) {
        mClient.retrytcpconnect(port);
        mClient.trigger("127.0.0.1", kPort);
    }

 private:
    WFDTriggerTcpClient mClient;
};

class BareClient {
 public:
    explicit BareClient(int port) : mSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        const unsigned char command[kCommandSize] = {0, 2, kPort >> 8, kPort & 0xff};
        if (connect(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            (void)!write(mSocket, command, sizeof command);
        }
    }
    ~BareClient() { close(mSocket); }
    BareClient(const BareClient&) = delete;
    BareClient& operator=(const BareClient&) = delete;

 private:
    const int mSocket;
};

void ours(State& state) {
    WFDTriggerTcpServer server;
    server.setCallback(triggered);
    measure<OurClient>(state, server.getServerPort());
}

void yardstick(State& state) {
    const BareServer server;
    measure<BareClient>(state, server.port());
}

}  // namespace

void addTriggerBenchmarks(Table& table) {
    // Few: each leaves a port of this host in use for a minute.
    benchmark::RegisterBenchmark("trigger/ours", ours)->UseManualTime()->Iterations(300);
    benchmark::RegisterBenchmark("trigger/yardstick", yardstick)->UseManualTime()->Iterations(300);
    table.add("trigger: connect to callback", {"trigger/ours", "", ""},
              "bare connect and write, accept and read", {"trigger/yardstick", "", ""},
              {Aim::Kind::Ratio, 1.3});
}
