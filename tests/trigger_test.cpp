// The trigger: the sink's server and the source's client, over loopback.
#include <optional>

#include "DiscoveryTest.h"
#include "WFDTriggerTcpClient.h"
#include "WFDTriggerTcpServer.h"

namespace {

const std::string kHalf("\0\2", 2);

using TriggerTest = DiscoveryTest;

TEST_F(TriggerTest, ServerReportsWhoAsks) {
    const std::tuple<const char*, Lines, std::string> cases[] = {
        {"127.0.0.77", {kHalf + "\xff\xfe"}, "127.0.0.77 65534"},
        {"127.0.0.1", {std::string(1, '\0'), "\2\x80", "\x01"}, "127.0.0.1 32769"},
        // One command for each connection.
        {"127.0.0.1", {kHalf + '\0', "\x80" + kHalf + "\x01\x01\x01\x01"}, "127.0.0.1 128"},
    };
    WFDTriggerTcpServer server;
    const int port = server.getServerPort();
    sendTrigger(port);  // before there is a callback
    server.setCallback(triggered);
    for (const auto& [from, pieces, reported] : cases) {
        mark();
        Connection source(port, from);
        for (const std::string& piece : pieces) {
            source.send(piece);
            yieldToOthers();
        }
        EXPECT_EQ(source.received(), "");  // closed when it has been served
        EXPECT_EQ(callbacks(), Lines{reported});
    }
}

TEST_F(TriggerTest, ServerEndsWithAMalformedCommand) {
    for (const std::string& bytes : {std::string("\1\2\x1c\x44", 4), std::string("\0\3\x1c\x44", 4),
                                     std::string("\2\0\x1c\x44", 4), kHalf + "\x1c", kHalf + ""}) {
        mark();
        WFDTriggerTcpServer server;
        server.setCallback(triggered);
        const int port = server.getServerPort();
        Connection source(port);
        source.send(bytes);
        source.sendEnd();
        EXPECT_EQ(source.received(), "");
        EXPECT_TRUE(waitUntil([port] { return !Connection(port).connected(); }));
        EXPECT_EQ(callbacks(), Lines{});
        EXPECT_EQ(server.getServerPort(), port);
    }
}

TEST_F(TriggerTest, ServerEndsWhateverItDoes) {
    sendTrigger(WFDTriggerTcpServer().getServerPort());  // what is made once is there from now on
    const long before = descriptorCount();
    for (int round = 0; round < 60; ++round) {
        std::optional<WFDTriggerTcpServer> server(std::in_place);
        server->setCallback(triggered);
        std::optional<Connection> source;
        if (round % 3 != 0) source.emplace(server->getServerPort());
        if (round % 3 == 2) source->send(kHalf);
        if (round % 2 == 0) yieldToOthers();  // until it waits for the rest
        server.reset();
    }
    EXPECT_EQ(callbacks(), Lines{});
    EXPECT_EQ(descriptorCount(), before);
}

TEST_F(TriggerTest, ClientConnectsAndSends) {
    const long before = descriptorCount();
    // The port that it asks the sink to connect to; the sink listens after so many waits, -1:
    // never.
    const std::tuple<int, int, const char*> cases[] = {{65534, 0, "0002fffe"},
                                                       {0x1c440080, 0, "00020080"},
                                                       {7236, 51, "00021c44"},
                                                       {7236, -1, ""}};
    for (const auto& [port, waits, bytes] : cases) {
        SCOPED_TRACE(waits);
        Sink closed("127.0.0.9"), sink("127.0.0.9");
        onSleep(200, waits, [&] { sink.listen(); });
        mark();
        {
            WFDTriggerTcpClient client("127.0.0.9", waits == 0 ? sink.port() : closed.port());
            client.retrytcpconnect(sink.port());
            EXPECT_EQ(client.trigger("192.168.49.1", port), waits >= 0);
        }
        EXPECT_EQ(slept(200), waits == 0 ? 0U : 51U);
        EXPECT_EQ(sink.received(), bytes);
        EXPECT_FALSE(sink.reached());  // there was one connection
    }
    mark();
    WFDTriggerTcpClient client("fe80::1", 7236);
    client.retrytcpconnect(7236);
    EXPECT_FALSE(client.trigger("", 7236));
    EXPECT_EQ(calls("sleep"), Lines{});
    EXPECT_EQ(descriptorCount(), before + 1);
}

}  // namespace
