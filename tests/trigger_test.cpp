// The trigger: the sink's server and the source's client, over loopback.
#include <sys/ioctl.h>

#include <asio/error.hpp>
#include <atomic>
#include <cerrno>
#include <optional>
#include <system_error>
#include <thread>

#include "DiscoveryTest.h"
#include "Faults.h"
#include "SystemFaults.h"
#include "TextFormat.h"
#include "WFDTriggerTcpClient.h"
#include "WFDTriggerTcpServer.h"

using hostplatform::Fault;
using hostplatform::format;
using hostplatform::ScopedFault;

namespace {

const std::string kAsk7236("\x00\x02\x1c\x44", 4);

class TriggerTest : public DiscoveryTest {
 protected:
    Lines log() const { return tagged("WFDTriggerTcp"); }
    // The server's end of the connection that it is reading from.
    int acceptedSocket() const {
        const auto entry = journal().waitFor("log", "accept returns ", marked());
        return entry ? stoi(entry->text.substr(entry->text.rfind(' '))) : -1;
    }
    // Waits until the server has read what has been sent on that connection.
    bool waitRead() const {
        const int socket = acceptedSocket();
        return waitUntil([socket] {
            int left = -1;
            return ioctl(socket, FIONREAD, &left) == 0 && left == 0;
        });
    }
    static bool refuses(int port) {
        return waitUntil([port] {
            try {
                Connection{port};
            } catch (const std::system_error& error) {
                return error.code() == asio::error::connection_refused;
            }
            return false;
        });
    }
};

TEST_F(TriggerTest, ServerHandsOverWhoAsks) {
    const struct {
        const char* from;
        std::vector<std::string> pieces;
        const char* asks;
    } cases[] = {
        {"127.0.0.1", {kAsk7236}, "127.0.0.1, 7236"},
        {"127.0.0.77", {kAsk7236}, "127.0.0.77, 7236"},
        {"127.0.0.1", {kAsk7236.substr(0, 1), kAsk7236.substr(1)}, "127.0.0.1, 7236"},
        {"127.0.0.1", {"", kAsk7236.substr(0, 3), kAsk7236.substr(3)}, "127.0.0.1, 7236"},
        {"127.0.0.1", {std::string("\x00\x02\xff\xfe", 4)}, "127.0.0.1, 65534"},
        {"127.0.0.1", {std::string("\x00\x02\x00\x80", 4)}, "127.0.0.1, 128"},
        {"127.0.0.1", {std::string("\x00\x02\x00\x00", 4)}, "127.0.0.1, 0"},
        // One command for each connection.
        {"127.0.0.1", {kAsk7236 + std::string("\x00\x02\x00\x01", 4)}, "127.0.0.1, 7236"},
    };
    WFDTriggerTcpServer server;
    const int port = server.getServerPort();
    EXPECT_EQ(log(), (Lines{"V: bind ok 0", format("V: TCP Server port Num = %d", port),
                            "V: listen ok 0"}));
    // Before anybody wants to know.
    sendCommand(port, kAsk7236);
    EXPECT_EQ(log().back(), "V: Request connection to 127.0.0.1:7236");
    EXPECT_EQ(callbacks(0), Lines{});

    server.setCallback(triggered<'t'>);
    for (const auto& given : cases) {
        SCOPED_TRACE(given.asks);
        mark();
        Connection source(port, given.from);
        for (const std::string& piece : given.pieces) {
            EXPECT_TRUE(waitRead());
            source.send(piece);
        }
        EXPECT_EQ(callbacks(1), Lines{format("t(%s)", given.asks)});
        EXPECT_EQ(source.received(), "");  // closed when it has been served
    }
    mark();
    server.setCallback(triggered<'u'>);
    sendCommand(port, kAsk7236);
    EXPECT_EQ(callbacks(1), Lines{"u(127.0.0.1, 7236)"});
}

TEST_F(TriggerTest, ServerEndsWithAMalformedCommand) {
    const Lines invalid{"E: Invalid connection request command", "E: Failed to read command"};
    const auto ended = [](int result, int bytes) {
        return Lines{format("E: readAll error %d after read %d bytes", result, bytes),
                     "E: Not enough content for request connection command",
                     "E: Failed to read command"};
    };
    const struct {
        std::string bytes;
        Lines log;
    } cases[] = {
        {std::string("\x01\x02\x1c\x44", 4), invalid},
        {std::string("\x00\x03\x1c\x44", 4), invalid},
        {std::string("\x02\x00\x1c\x44", 4), invalid},
        {std::string("\x00\x82\x1c\x44", 4), invalid},
        {kAsk7236.substr(0, 3), ended(0, 3)},
        {"", ended(0, 0)},
    };
    for (const auto& given : cases) {
        WFDTriggerTcpServer server;
        server.setCallback(triggered<'t'>);
        const int port = server.getServerPort();
        sendCommand(port, kAsk7236);
        mark();
        Connection source(port);
        source.send(given.bytes);
        Lines expected{format("V: accept returns %d", acceptedSocket())};
        source.sendEnd();
        EXPECT_EQ(source.received(), "");
        EXPECT_TRUE(refuses(port));
        expected.insert(expected.end(), given.log.begin(), given.log.end());
        EXPECT_EQ(log(), expected);
        EXPECT_EQ(callbacks(0), Lines{});
        EXPECT_EQ(server.getServerPort(), port);
    }
}

TEST_F(TriggerTest, ServerEndsWhateverItDoes) {
    { const Sink any; }  // what is made once is there from now on
    const std::set<int> before = openDescriptors();
    for (int i = 0; i < 200; ++i) WFDTriggerTcpServer().setCallback(triggered<'t'>);

    // While a source connects, which may come too late.
    constexpr int kRound = 1 << 16;     // ports may come again
    std::atomic<int> roundAndPort{-1};  // 0: no more
    std::thread source([&] {
        for (int last = -1; last != 0;) {
            const int next = roundAndPort;
            if (next == last) continue;
            try {
                if (next != 0) Connection(next % kRound).send(kAsk7236.substr(0, 2));
            } catch (const std::system_error&) {  // too late
            }
            last = next;
        }
    });
    for (int round = 1; round <= 200; ++round) {
        mark();
        WFDTriggerTcpServer server;
        roundAndPort = round * kRound + server.getServerPort();
        if (round % 2 == 0) {
            EXPECT_TRUE(journal().waitFor("log", "accept returns", marked()));
        }
    }
    roundAndPort = 0;
    source.join();
    EXPECT_EQ(callbacks(0), Lines{});
    EXPECT_EQ(openDescriptors(), before);

    // Half a command read.
    mark();
    {
        std::optional<WFDTriggerTcpServer> server(std::in_place);
        Connection half(server->getServerPort());
        half.send(kAsk7236.substr(0, 2));
        EXPECT_TRUE(waitRead());
        server.reset();
        EXPECT_EQ(half.received(), "");
    }
    EXPECT_EQ(journal().count("log", "readAll error 0 after read 2 bytes", marked()), 1U);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TriggerTest, ServerWaitsForItsCallback) {
    static Latch begun, gone;
    std::optional<WFDTriggerTcpServer> server(std::in_place);
    server->setCallback([](const char* address, int port) {
        begun.open();
        // Time for a destructor that does not wait to get away.
        if (!gone.wait(std::chrono::milliseconds(100))) noteTrigger('t', address, port);
    });
    Connection source(server->getServerPort());
    source.send(kAsk7236);
    ASSERT_TRUE(begun.wait());
    server.reset();
    gone.open();
    EXPECT_EQ(calls("callback"), Lines{"t(127.0.0.1, 7236)"});
}

// A device's agent may have handlers that do not restart what they interrupt.
TEST_F(TriggerTest, ServerGoesOnAfterASignal) {
    const ScopedSystemFault accepting(SystemCall::Accept, EINTR, 1);
    const ScopedSystemFault reading(SystemCall::Read, EINTR, 1);
    WFDTriggerTcpServer server;
    server.setCallback(triggered<'t'>);
    sendCommand(server.getServerPort(), kAsk7236);
    EXPECT_EQ(calls("callback"), Lines{"t(127.0.0.1, 7236)"});
    EXPECT_TRUE(accepting.used());
    EXPECT_TRUE(reading.used());
}

TEST_F(TriggerTest, ServerWithoutAThread) {
    const std::set<int> before = openDescriptors();
    {
        const ScopedFault fault(Fault::ThreadCreation);
        EXPECT_THROW(WFDTriggerTcpServer(), std::system_error);
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_GT(WFDTriggerTcpServer().getServerPort(), 0);
}

TEST_F(TriggerTest, ClientConnectsAtOnce) {
    Sink sink;
    sink.listen();
    const struct {
        int port;
        const char* bytes;
        const char* log;
    } cases[] = {{7236, "00021c44", "0 2 28 68"},
                 {65534, "0002fffe", "0 2 255 254"},
                 {0x1c440080, "00020080", "0 2 0 128"}};
    for (const auto& given : cases) {
        mark();
        {
            WFDTriggerTcpClient client("127.0.0.1", sink.port());
            client.retrytcpconnect(sink.port());
            EXPECT_TRUE(client.trigger("192.168.49.1", given.port));
        }
        EXPECT_EQ(sink.received(), given.bytes);
        EXPECT_FALSE(sink.reached());  // there was one connection
        EXPECT_EQ(log(),
                  (Lines{format("V: trigger %d", given.port), format("V: write %s", given.log)}));
        EXPECT_EQ(slept(200), 0U);
    }
}

TEST_F(TriggerTest, ClientRetriesWhereItTriedFirst) {
    // Nobody is to be reached at another address of this host.
    for (const int sleeps : {1, 3, 50, 51}) {
        SCOPED_TRACE(sleeps);
        Sink first("127.0.0.9");
        Sink late("127.0.0.9");
        onSleep(200, sleeps, [&] { late.listen(); });
        mark();
        {
            WFDTriggerTcpClient client("127.0.0.9", first.port());
            client.retrytcpconnect(late.port());
            EXPECT_TRUE(client.trigger("", 7236));
        }
        EXPECT_EQ(late.received(), "00021c44");
        EXPECT_EQ(log(), (Lines{"E: client connect failed with errno=111", "E: client Connected",
                                "V: trigger 7236", "V: write 0 2 28 68"}));
        EXPECT_EQ(slept(200), static_cast<size_t>(sleeps));
    }
}

TEST_F(TriggerTest, ClientGivesUp) {
    const Sink sink;
    const std::set<int> before = openDescriptors();
    const struct {
        const char* address;
        Lines log;
        size_t sleeps;
    } cases[] = {
        {"127.0.0.1",
         {"E: client connect failed with errno=111",
          "E: client connect failed after waiting for 10200 ms (MAX = 10000 ms)",
          "E: client failed with errno=111"},
         51},
        {"display.local", {"E: client: inet_pton error for display.local"}, 0},
        {"fe80::1", {"E: client: inet_pton error for fe80::1"}, 0},
        {"", {"E: client: inet_pton error for "}, 0},
    };
    for (const auto& given : cases) {
        mark();
        {
            WFDTriggerTcpClient client(given.address, sink.port());
            client.retrytcpconnect(sink.port());
            EXPECT_FALSE(client.trigger("", 7236));  // and no SIGPIPE ends the process
        }
        Lines expected = given.log;
        expected.insert(expected.end(), {"V: trigger 7236", "V: write 0 2 28 68"});
        EXPECT_EQ(log(), expected);
        EXPECT_EQ(slept(200), given.sleeps);
    }
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
