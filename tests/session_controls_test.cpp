#include "DeviceTest.h"
#include "Faults.h"

namespace {

using SessionControlsTest = FastDeviceTest;

TEST_F(SessionControlsTest, WithoutAClientNothingIsCalled) {
    const std::string noClient = "WFD Client is NULL\n";
    struct {
        int (*call)();
        int result;
        std::vector<std::string> log;
    } const cases[] = {
        {[] { return teardownRtsp(1, 1); }, -1, {noClient}},
        {[] { return pauseRtsp(1); }, -1, {noClient}},
        {[] { return playRtsp(1); }, -1, {noClient}},
        {[] { return standbyRtsp(1); }, -1, {noClient}},
        {[] { return setParameter(1, 0, "H264-0"); }, -1, {noClient}},
        {[] { return transportswitch(1, 1); }, -1, {}},
        {[] { return enableDirectStreaming(); }, 0, {}},
        {[] { return sendIDRRequest(); }, -1, {"sendIDRRequest : WFD Client is NULL\n"}},
    };
    ASSERT_EQ(gWFDClient, nullptr);
    for (const auto& c : cases) {
        mark();
        EXPECT_EQ(c.call(), c.result);
        EXPECT_EQ(logLines(), c.log);
    }
}

TEST_F(SessionControlsTest, TurnsTextsIntoFormats) {
    struct {
        const char* text;
        int result;
        std::string call;  // empty: none
        std::vector<std::string> log;
        std::string output;
    } const cases[] = {
        {"H264-0", 0, "codec 0 profile 0", {"Received codec 0 profile 0"}, ""},
        {"H264-1x", 0, "codec 0 profile 1", {"Received codec 0 profile 1"}, ""},
        {"H265-5", 0, "codec 1 profile 5", {"Received codec 1 profile 5"}, ""},
        {"xH265-3H264", 0, "codec 0 profile 3", {"Received codec 0 profile 3"}, ""},
        {"LPCM", 0, "codec 2 profile 0", {}, ""},
        {"AAC", 0, "codec 3 profile 0", {}, ""},
        {"H264-/", 0, "codec 0 profile -1", {"Received codec 0 profile -1"}, ""},
        {"H264-6", -1, "", {"Received codec 0 profile 6", "invalid profile \n"}, ""},
        {"H264-\xff", -1, "", {"Received codec 0 profile 207", "invalid profile \n"}, ""},
        {"H264", -1, "", {"Invalid profile string \n"}, ""},
        {"1-H265-", -1, "", {"Invalid profile string \n"}, ""},
        {"aac", -1, "", {}, "Invalid codec string\n"},
        {"h264-1", -1, "", {}, "Invalid codec string\n"},
        {"", -1, "", {}, "Invalid codec string\n"},
        {nullptr, -1, "", {}, "Invalid codec string\n"},
    };
    ASSERT_EQ(startWfdConnection("", "192.168.49.2", 7236, 1, nullptr, nullptr), 0);
    ASSERT_TRUE(hostplatform::waitReported());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text == nullptr ? "(null)" : c.text);
        mark();
        testing::internal::CaptureStdout();
        EXPECT_EQ(setParameter(0, 0, c.text), c.result);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.output);
        EXPECT_EQ(logLines(), c.log);
        const std::vector<std::string> expected =
            c.call.empty() ? std::vector<std::string>()
                           : std::vector<std::string>{"sendAvFormatChange " + c.call +
                                                      " 0 3 32 resolution 1280 720 -> 0"};
        EXPECT_EQ(calls(), expected);
    }
}

TEST_F(SessionControlsTest, OnlyTwoControlsGiveTheClientsResult) {
    ASSERT_EQ(startWfdConnection("", "192.168.49.2", 7236, 0, nullptr, nullptr), 0);
    ASSERT_TRUE(hostplatform::waitReported());
    const hostplatform::ScopedFault fault(hostplatform::Fault::SessionControl, -42);
    mark();
    EXPECT_EQ(teardownRtsp(g_wfd_session_id, 7), 0);
    EXPECT_EQ(pauseRtsp(1), 0);
    EXPECT_EQ(playRtsp(1), 0);
    EXPECT_EQ(standbyRtsp(1), 0);
    EXPECT_EQ(transportswitch(1, 0), 0);
    EXPECT_EQ(setParameter(1, 0, "AAC"), 0);
    EXPECT_EQ(enableDirectStreaming(), -42);
    EXPECT_EQ(sendIDRRequest(), -42);
    EXPECT_EQ(journal().count("session", "teardown_rtsp flag 1", marked()), 1U);
    EXPECT_EQ(journal().count("session", "executeRuntimeCommand 3", marked()), 1U);
    EXPECT_EQ(calls().size(), 8U);
}

}  // namespace
