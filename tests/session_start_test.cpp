#include <cstdlib>
#include <cstring>
#include <thread>

#include "Clock.h"
#include "DeviceTest.h"
#include "Faults.h"
#include "osal/osal.h"

namespace {

using hostplatform::Fault;
using hostplatform::Peer;
using hostplatform::ScopedFault;

class SessionStartTest : public FastDeviceTest {
 protected:
    ~SessionStartTest() override { sta_reset_default(""); }
};

TEST_F(SessionStartTest, DescribesBothEnds) {
    struct {
        const char* peer;
        int port;
        int peerType;
        const char* local;
        int version;
        std::string call;
    } const cases[] = {
        {"192.168.49.2", 7236, 1, nullptr, 1,
         "as source (R2), local \"\", peer \"192.168.49.2\" port 7236 -> 0"},
        {"192.168.49.1", 7240, 0, "192.168.49.9", 2,
         "as sink (R2), local \"192.168.49.9\", peer \"192.168.49.1\" port 7240 (R2) -> 0"},
        {nullptr, -100, 0, nullptr, 1, "as sink (R2), local \"\", peer \"\" port -100 -> 0"},
        {"a text of more than thirty-one characters", 1, 1,
         "another text of more than thirty-one characters", 1,
         "as source (R2), local \"another text of more than thirt\", "
         "peer \"a text of more than thirty-one \" port 1 -> 0"},
    };
    hostplatform::setPeer(Peer::Silent);
    int clients = hostplatform::clientCount();
    for (const auto& c : cases) {
        wfd_version = c.version;
        g_wfd_session_id = 99;
        mark();
        EXPECT_EQ(startWfdConnection("unread", c.peer, c.port, c.peerType, nullptr, c.local), 0);
        EXPECT_EQ(calls().back(), "createWfdSession " + c.call);
        EXPECT_EQ(g_wfd_session_id, 0);
        EXPECT_EQ(hostplatform::clientCount(), ++clients);  // each start makes a client of its own
        EXPECT_EQ(logged("configuring miracast R2\n"), c.version == 2);
    }
}

TEST_F(SessionStartTest, FormatsTheIdentifier) {
    struct {
        int id;
        const char* text;
    } const cases[] = {{7, "00000007"}, {12345678, "12345678"}, {123456789, "123456789"}};
    for (const auto& c : cases) {
        hostplatform::setNextSessionId(c.id);
        mark();
        char text[12] = "";
        EXPECT_EQ(startWfdConnection("", "192.168.49.2", 7236, 1, text, nullptr), 0);
        EXPECT_STREQ(text, c.text);
        EXPECT_STREQ(wfdSessionId, std::to_string(c.id).c_str());
        EXPECT_TRUE(logged("Waiting for session ID\n"));
        EXPECT_TRUE(logged("Obtained session ID " + std::string(c.text)));
        ASSERT_TRUE(hostplatform::waitReported());
    }
}

TEST_F(SessionStartTest, WaitsSixtyPollsForASilentPeer) {
    hostplatform::setPeer(Peer::Silent);
    const uint64_t begin = osal_clock_ms();
    char* response = nullptr;
    EXPECT_EQ(start_wfd_connection("", "192.168.49.2", 7236, 1, &response), -1);
    EXPECT_EQ(response, nullptr);
    EXPECT_GE(osal_clock_ms() - begin, 60'000U);
    EXPECT_EQ(journal().count("log", "E/: Obtained session ID 0", marked()), 60U);
    char text[12] = "";
    EXPECT_EQ(startWfdConnection("", "192.168.49.2", 7236, 1, text, nullptr), -1);
    EXPECT_STREQ(text, "NULL");
}

TEST_F(SessionStartTest, LateAndRefusingPeers) {
    hostplatform::setTimeScale(50);  // a busy machine makes each sleep longer by some milliseconds
    hostplatform::setPeer(Peer::Late, std::chrono::milliseconds(20'000));
    char* response = nullptr;
    EXPECT_EQ(connect_go_start_wfd("", "192.168.49.2", 7236, 1, &response), 0);
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(strlen(response), 8U);
    free(response);
    EXPECT_GE(journal().count("log", "E/: Obtained session ID 0", marked()), 10U);

    hostplatform::setPeer(Peer::Refuses);
    EXPECT_EQ(start_wfd_connection("", "192.168.49.2", 7236, 1, &response), -1);
    EXPECT_EQ(response, nullptr);
    EXPECT_TRUE(logged("WFDDBUG: RTSPCloseCallback Received! Release VDS \n"));
}

TEST_F(SessionStartTest, ReportsTheClientsResult) {
    // Also after the wait, which takes place all the same; a foreign result leaves the response.
    const ScopedFault fault(Fault::SessionCreation, -5);
    char text[12] = "";
    std::thread establishes([] {
        hostplatform::Journal::instance().waitFor("log", "Obtained session ID 0");
        hostplatform::report("SessionState", {"ESTABLISHED", "peer", "31"});
    });
    EXPECT_EQ(startWfdConnection("", "192.168.49.2", 7236, 1, text, nullptr), -5);
    establishes.join();
    EXPECT_STREQ(text, "00000031");
    EXPECT_EQ(startWfdConnection("", "192.168.49.2", 7236, 1, nullptr, nullptr), -5);
}

TEST_F(SessionStartTest, WithoutAClientThereIsNoSession) {
    const ScopedFault fault(Fault::SessionClient);
    for (const int version : {1, 2}) {
        wfd_version = version;
        g_wfd_session_id = 99;
        char* response = nullptr;
        mark();
        EXPECT_EQ(start_wfd_connection("", "192.168.49.2", 7236, 1, &response), -1);
        EXPECT_EQ(response, nullptr);
        EXPECT_EQ(logLines().back(), "Failed to instantiate client!");
        EXPECT_EQ(g_wfd_session_id, 99);
        g_wfd_session_id = 0;
    }
}

}  // namespace
