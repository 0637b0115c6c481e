#include <dirent.h>

#include "Compositor.h"
#include "DeviceTest.h"
#include "osal/osal.h"

namespace {

using hostplatform::Compositor;
using hostplatform::waitReported;

class SessionCommandsTest : public FastDeviceTest {
 protected:
    ~SessionCommandsTest() override {
        sta_reset_default("");
        wfd_device_type = 0;
    }
};

size_t entriesOf(const char* directory) {
    size_t count = 0;
    DIR* const open = opendir(directory);
    while (readdir(open) != nullptr) ++count;
    closedir(open);
    return count;
}

TEST_F(SessionCommandsTest, ResetChoosesTheVersion) {
    struct {
        const char* command;
        int version;
        const char* output;
    } const cases[] = {
        {"prog,WFD", 1, ""}, {"prog,displayr2", 2, "setting miracast R2 \n"},
        {nullptr, 2, ""},    {"", 1, ""},
        {nullptr, 1, ""},    {"xDisplayR2x", 2, "setting miracast R2 \n"},
    };
    for (const auto& c : cases) {
        mark();
        const uint64_t begin = osal_clock_ms();
        testing::internal::CaptureStdout();
        EXPECT_EQ(sta_reset_default(c.command), 0);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.output);
        EXPECT_EQ(wfd_version, c.version);
        EXPECT_GE(osal_clock_ms() - begin, 1000U);
        EXPECT_EQ(calls("binder").size(), 1U);
        EXPECT_TRUE(calls("session").empty());
    }
}

TEST_F(SessionCommandsTest, ResetEndsTheSession) {
    for (const int peer : {0, 1}) {
        char* response = nullptr;
        ASSERT_EQ(start_wfd_connection("", "192.168.49.2", 7236, peer, &response), 0);
        free(response);
        EXPECT_EQ(wfd_device_type, 1 - peer);
        ASSERT_TRUE(waitReported());
        EXPECT_EQ(Compositor::instance().layers().size(), peer == 0 ? 1U : 0U);
        EXPECT_EQ(Compositor::instance().virtualDisplays().size(), peer == 0 ? 0U : 1U);
        mark();
        sta_reset_default(nullptr);
        EXPECT_EQ(g_wfd_session_id, 0);
        EXPECT_EQ(calls().front().substr(0, 20), "teardown_rtsp flag 0");
        ASSERT_TRUE(journal().waitFor("session", "stopWfdSession", marked()));
        EXPECT_TRUE(Compositor::instance().layers().empty());
        EXPECT_TRUE(Compositor::instance().virtualDisplays().empty());
    }
}

TEST_F(SessionCommandsTest, StartNeedsAResponse) {
    wfd_device_type = 1;
    EXPECT_EQ(connect_go_start_wfd("", "192.168.49.2", 7236, 1, nullptr), -1);
    EXPECT_EQ(wfd_device_type, 1);  // left as it is
    EXPECT_EQ(start_wfd_connection("", "192.168.49.2", 7236, 1, nullptr), -1);
    EXPECT_EQ(wfd_device_type, 0);  // taken on before anything else
    EXPECT_EQ(logLines(), std::vector<std::string>(2, "vestor: session_id is NULL"));
    EXPECT_TRUE(calls().empty());
}

TEST_F(SessionCommandsTest, StartsAndEndsLeaveNothingBehind) {
    const auto round = [this](int number) {
        const int peer = number % 2;
        const bool silent = number % 20 == 9;
        hostplatform::setPeer(silent ? hostplatform::Peer::Silent : hostplatform::Peer::Answers);
        char* response = nullptr;
        const int result = start_wfd_connection("", "192.168.49.2", 7236, peer, &response);
        EXPECT_EQ(result, silent ? -1 : 0);
        free(response);
        if (number % 3 == 0) dev_send_frame("framename,RTSP,RtspMsgType,TEARDOWN");
        mark();
        sta_reset_default(number % 4 == 0 ? "DisplayR2" : "");
        ASSERT_TRUE(waitReported());
    };
    // Every worker has ended when the threads are as many as before the session.
    const auto settled = [](size_t threads) {
        for (int i = 0; i < 2000 && entriesOf("/proc/self/task") > threads; ++i) {
            hostplatform::Journal::instance().waitQuiet(std::chrono::milliseconds(5),
                                                        std::chrono::milliseconds(50));
        }
        return entriesOf("/proc/self/task") <= threads;
    };
    round(0);  // what is made once is there after the first
    hostplatform::Journal::instance().waitQuiet(std::chrono::milliseconds(300),
                                                std::chrono::seconds(5));
    const size_t threads = entriesOf("/proc/self/task");
    const size_t descriptors = entriesOf("/proc/self/fd");
    const int clients = hostplatform::clientCount();
    for (int number = 1; number <= 200; ++number) round(number);

    EXPECT_TRUE(settled(threads)) << entriesOf("/proc/self/task") << " threads, " << threads
                                  << " before";
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(hostplatform::clientCount(), clients + 200);  // these stay, one for each start
    EXPECT_TRUE(Compositor::instance().layers().empty());
    EXPECT_TRUE(Compositor::instance().virtualDisplays().empty());
    EXPECT_EQ(Compositor::instance().openConnections(), 0);
    EXPECT_EQ(Compositor::instance().liveSurfaces(), 0);
    EXPECT_EQ(g_wfd_session_id, 0);
}

}  // namespace
