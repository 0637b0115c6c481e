#include "DeviceTest.h"

namespace {

using hostplatform::currentSession;

struct FrameCase {
    std::string command;
    int status;
    std::vector<std::string> calls;  // on the session client, without identifier and result
    std::string output;              // on standard output, after the line that names the message
};

class FrameCommandTest : public FastDeviceTest {
 protected:
    // A session that plays, with all that its start reports behind it.
    void startSession() {
        char* response = nullptr;
        ASSERT_EQ(start_wfd_connection("", "192.168.49.2", 7236, 1, &response), 0);
        free(response);
        ASSERT_TRUE(hostplatform::waitReported());
    }

    ~FrameCommandTest() override { sta_reset_default(nullptr); }
};

TEST_F(FrameCommandTest, MakesTheRequestOfEachMessage) {
    hostplatform::setNextSessionId(77);
    startSession();
    const std::string rtsp = "framename,rtsp,RtspMsgType,";
    const FrameCase cases[] = {
        {rtsp + "PAUSE", 1, {"pause_rtsp flag 0 id 77 -> 0"}, ""},
        {rtsp + "trigger-pause", 1, {"pause_rtsp flag 0 id 77 -> 0"}, ""},
        {rtsp + "Play", 1, {"play_rtsp flag 0 id 77 -> 0"}, ""},
        {rtsp + "trigger-play", 1, {"play_rtsp flag 0 id 77 -> 0"}, ""},
        {rtsp + "SETUP", 1, {"negotiateRtpTransport 1 (TCP) 100 0 -> 0"}, ""},
        {rtsp + "OPTIONS", 2, {}, ""},
        {rtsp, 2, {}, ""},
        {rtsp + std::string(32, 'P'), 2, {}, ""},  // too long to be a message
        {rtsp + "SET_PARAMETER", 2, {}, ""},
        {rtsp + "SET_PARAMETER,SetParameter,standby,TransportType,udp",
         1,
         {"standby_rtsp id 77 -> 0"},
         ""},
        {rtsp + "SET_PARAMETER,SetParameter,Other", 1, {}, ""},
        {rtsp + "SET_PARAMETER,SetParameter,Other,TransportType,udp",
         1,
         {"negotiateRtpTransport 0 (UDP) 100 0 -> 0"},
         "requested udp switch\n"},
        {rtsp + "SET_PARAMETER,TransportType,TCP",
         1,
         {"negotiateRtpTransport 1 (TCP) 100 0 -> 0"},
         "requested tcp switch\n"},
        {rtsp + "SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateCodecProfile,H264-1",
         1,
         {"sendAvFormatChange codec 0 profile 1 0 3 32 resolution 1280 720 -> 0"},
         ""},
        {rtsp + "SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateProfile,H265-2,"
                "TransportType,tcp",
         1,
         {"sendAvFormatChange codec 1 profile 2 0 3 32 resolution 1280 720 -> 0",
          "negotiateRtpTransport 1 (TCP) 100 0 -> 0"},
         "requested tcp switch\n"},
        {rtsp + "SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateCodecProfile,VP9,"
                "TransportType,tcp",
         2,
         {},
         "Invalid codec string\nFailed set param \n"},
        {rtsp + "SET_PARAMETER,SetParameter,CapReNego",
         2,
         {},
         "Invalid codec string\nFailed set param \n"},
    };
    for (const FrameCase& c : cases) {
        SCOPED_TRACE(c.command);
        ASSERT_TRUE(hostplatform::waitReported());
        mark();
        testing::internal::CaptureStdout();
        EXPECT_EQ(dev_send_frame(c.command.c_str()), c.status);
        const std::string output = testing::internal::GetCapturedStdout();
        const size_t firstLine = output.find('\n') + 1;
        EXPECT_EQ(output.substr(0, 29), "WFD ID = 77 Command Name = " + output.substr(27, 2));
        EXPECT_EQ(output.substr(firstLine), c.output);
        // The calls of this thread come before those that the reports bring about.
        std::vector<std::string> made = calls();
        ASSERT_GE(made.size(), c.calls.size());
        made.resize(c.calls.size());
        EXPECT_EQ(made, c.calls);
        if (c.calls.empty()) {
            EXPECT_TRUE(calls().empty());
        }
        EXPECT_TRUE(logged("vestor: Received Dev Send Frame " + c.command));
    }
}

TEST_F(FrameCommandTest, TearsDown) {
    startSession();
    mark();
    EXPECT_EQ(dev_send_frame("framename,RTSP,RtspMsgType,TRIGGER-TEARDOWN"), 1);
    // Down to the last step of the cleanup, which finds the session stopped already.
    ASSERT_TRUE(journal().waitFor("session", "stopWfdSession", marked()));
    EXPECT_EQ(calls().front().substr(0, 20), "teardown_rtsp flag 1");
    EXPECT_EQ(g_wfd_session_id, 0);
    EXPECT_FALSE(currentSession()->active);
}

TEST_F(FrameCommandTest, NeedsAnRtspFrameAndASession) {
    struct {
        std::string command;
        int status;
        const char* output;
    } const cases[] = {
        {"framename,ARP,RtspMsgType,PAUSE", 0, ""},
        {"RtspMsgType,PAUSE", 0, ""},
        {"framename," + std::string(40, 'R') + ",RtspMsgType,PAUSE", 0, ""},
        {"framename,RTSP,RtspMsgType,PAUSE", -1,
         "Obtained Session ID: 0 \nNo session in Progress\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        testing::internal::CaptureStdout();
        EXPECT_EQ(dev_send_frame(c.command.c_str()), c.status);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.output);
    }
    EXPECT_EQ(dev_send_frame(nullptr), 0);
    EXPECT_TRUE(calls().empty());
}

}  // namespace
