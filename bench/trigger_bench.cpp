// The trigger, over the loopback interface.
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "Arrivals.h"
#include "WFDTriggerTcpClient.h"
#include "WFDTriggerTcpServer.h"

namespace {

constexpr int kPort = 7236;  // what is asked for; nobody connects to it
constexpr ssize_t kCommandSize = 4;

// One for both servers: a trigger callback has no context.
Arrivals arrivals;

void triggered(const char* /*address*/, int /*port*/) { arrivals.arrived(); }

// The least that does the same, without log lines.
class BareServer {
 public:
    BareServer() {
        socklen_t size = sizeof mAddress;
        mAddress.sin_family = AF_INET;
        mAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(mListener, reinterpret_cast<sockaddr*>(&mAddress), size) != 0 ||
            listen(mListener, 2) != 0 ||
            getsockname(mListener, reinterpret_cast<sockaddr*>(&mAddress), &size) != 0) {
            abort();
        }
        mThread = std::thread([this] { run(); });
    }
    ~BareServer() {
        shutdown(mListener, SHUT_RDWR);
        mThread.join();
        close(mListener);
    }
    BareServer(const BareServer&) = delete;
    BareServer& operator=(const BareServer&) = delete;

    // As a client.
    void trigger() const {
        const unsigned char command[kCommandSize] = {0, 2, kPort >> 8, kPort & 0xff};
        const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(connection, reinterpret_cast<const sockaddr*>(&mAddress), sizeof mAddress) !=
                0 ||
            write(connection, command, sizeof command) != kCommandSize) {
            abort();
        }
        arrivals.wait();
        close(connection);
    }

 private:
    void run() const {
        while (true) {
            const int connection = accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0) return;
            unsigned char command[kCommandSize];
            if (read(connection, command, sizeof command) == kCommandSize) {
                triggered(nullptr, command[2] << 8 | command[3]);
            }
            close(connection);
        }
    }

    const int mListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in mAddress{};
    std::thread mThread;
};

// Keeps this thread, and those that it makes, on one CPU: whether the scheduler has put a server's
// thread on the same one makes a difference of a factor of three.
class OneCpu {
 public:
    OneCpu() {
        sched_getaffinity(0, sizeof mAll, &mAll);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~OneCpu() { sched_setaffinity(0, sizeof mAll, &mAll); }
    OneCpu(const OneCpu&) = delete;
    OneCpu& operator=(const OneCpu&) = delete;

 private:
    cpu_set_t mAll;
};

// From connecting until the callback.
void trigger(benchmark::State& state) {
    const OneCpu oneCpu;
    WFDTriggerTcpServer server;
    server.setCallback(triggered);
    const BareServer bare;
    const auto ours = [&] {
        WFDTriggerTcpClient client("127.0.0.1", server.getServerPort());
        client.trigger("127.0.0.1", kPort);
        arrivals.wait();
    };
    const auto take = [](auto action) {
        arrivals.expect(1);
        return timed(action);
    };
    compare(
        state, 1, 1.25, [&] { return take(ours); }, [&] { return take([&] { bare.trigger(); }); });
}
// Few: each leaves a port of this host in use for a minute.
BENCHMARK(trigger)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(2000);

}  // namespace
