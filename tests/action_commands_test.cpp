#include <cerrno>

#include "DeviceTest.h"
#include "Faults.h"
#include "osal/osal.h"

namespace {

using ActionCommandsTest = FastDeviceTest;

std::string outputOf(int (*command)(const char*), const std::string& parameters, int* result) {
    testing::internal::CaptureStdout();
    *result = command(parameters.c_str());
    return testing::internal::GetCapturedStdout();
}

TEST_F(ActionCommandsTest, DirectStreaming) {
    const std::string back = "input keyevent 4";
    const std::string started = "start AVC Baseline playback \nplayback started \n";
    struct {
        std::string command;
        int result;
        std::string output;  // after the first line
        bool switched;       // direct streaming was asked for
        std::string clip;    // played; empty: none
    } const cases[] = {
        {"DirectStreaming,start,CodecProfile,h264-1", 1, started, true, "/sdcard/DS_HP_720.mp4"},
        {"DirectStreaming,Start,CodecProfile,H264-0", 1, started, true, "/sdcard/DS_BP_720.mp4"},
        {"DirectStreaming,Start,CodecProfile,H265-0", -2, "", true, ""},
        {"DirectStreaming,Start", -2, "invalid codec profile \n", true, ""},
        {"DirectStreaming,Start,CodecProfile," + std::string(64, 'H'), -2,
         "invalid codec profile \n", true, ""},
        {"DirectStreaming,Stop,CodecProfile,H264-1", 1, "Stop direct streaming \n", false, ""},
        {"DirectStreaming,Pause", -2, "", false, ""},
        {"DirectStreaming,,x", -2, "", false, ""},
        {"CodecProfile,H264-1", -2, "", false, ""},
    };
    ASSERT_EQ(startWfdConnection("", "192.168.49.2", 7236, 1, nullptr, nullptr), 0);
    ASSERT_TRUE(hostplatform::waitReported());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        rtsp_playback_thread = 0;
        mark();
        const uint64_t begin = osal_clock_ms();
        int result = 0;
        EXPECT_EQ(outputOf(dev_exec_action, c.command, &result),
                  "miracast_dev_exec_action \n" + c.output);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(logLines().front(), "vestor: Received Dev exec Action " + c.command);
        EXPECT_EQ(journal().count("session", "executeRuntimeCommand 3", marked()),
                  c.switched ? 1U : 0U);
        if (c.switched) {
            EXPECT_GE(osal_clock_ms() - begin, 1000U);
        }
        std::vector<std::string> tools;
        if (c.result == 1) tools.push_back(back);
        if (!c.clip.empty()) {
            ASSERT_NE(rtsp_playback_thread, 0U);
            pthread_join(rtsp_playback_thread, nullptr);
            EXPECT_GE(osal_clock_ms() - begin, 3000U);
            tools.emplace_back("am force-stop org.lindenvale.gallery");
            tools.push_back(
                "am start -n org.lindenvale.gallery/com.android.gallery3d.app.MovieActivity -d " +
                c.clip);
        } else {
            EXPECT_EQ(rtsp_playback_thread, 0U);
        }
        EXPECT_EQ(calls("tool"), tools);
    }
}

TEST_F(ActionCommandsTest, GenerateEvent) {
    constexpr int kSource = 0;
    constexpr int kSink = 1;
    const std::string keyboard = "Calling KEYBOARD SendUIBCEvent val=0\n";
    const std::string mouse = "Calling MOUSE SendUIBCEvent val=1\n";
    struct {
        int role;
        std::string command;
        int result;
        std::string event;   // printed
        std::string output;  // after it
        std::string generated;
    } const cases[] = {
        {kSink, "Type,IdrReq", 0, "", "sendIdrRequest called \n", ""},
        {kSource, "Type,IdrReq", 0, "",
         "sendIdrRequest: Unsupported Type for Generate Event For Source \n", ""},
        {kSink, "Type,idrreq", 2, "", "Unknown EventType!!!\n", ""},
        {kSink, "", 2, "", "Unknown EventType!!!\n", ""},
        {kSource, "UIBCEventType,mouse", 0, "mouse", "", ""},
        {kSource, "UIBCEventType,", 0, "", "", ""},
        {kSource, "UIBCEventType,Mouse", 0, "Mouse", mouse, "Mouse event injection\n"},
        {kSink, "UIBCEventType,MOUSE", 0, "MOUSE", mouse, "Mouse event injection\n"},
        {kSink, "Type,UIBC_Generic,UIBCEventType,KEYBOARD", 0, "KEYBOARD", keyboard,
         "Keyboard event injection!\n"},
        {kSink, "Type,uibc_hid,UIBCEventType,KeyBoard", 0, "KeyBoard", keyboard,
         "HID Keyboard event injection!\n"},
        // The first "Type" is the one inside "UIBCEventType".
        {kSink, "UIBCEventType,Keyboard,Type,UIBC_HID", 0, "Keyboard", keyboard,
         "Keyboard event injection!\n"},
    };
    ASSERT_EQ(startWfdConnection("", "192.168.49.2", 7236, 0, nullptr, nullptr), 0);
    ASSERT_TRUE(hostplatform::waitReported());
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.role << " " << c.command);
        wfd_device_type = c.role;
        mark();
        const uint64_t begin = osal_clock_ms();
        int result = -9;
        EXPECT_EQ(outputOf(sta_generate_event, c.command, &result),
                  "UIBCEventType is: " + c.event + "\n" + c.output);
        EXPECT_EQ(result, c.result);
        const bool generated = !c.generated.empty();
        EXPECT_EQ(journal().count("log", "UIBC Event Generation code.\n", marked()),
                  generated ? 1U : 0U);
        if (generated) {
            EXPECT_TRUE(logged("UIBCEvent: " + c.generated));
            EXPECT_GE(osal_clock_ms() - begin, 10'000U);
        }
        const bool prepares = c.role == kSource && c.command.substr(0, 4) == "UIBC";
        EXPECT_EQ(journal().count("log", "Create UIBC worker", marked()) +
                      journal().count("log", "Prepare for next event", marked()),
                  prepares ? 1U : 0U);
        EXPECT_EQ(calls("session").size(), c.output == "sendIdrRequest called \n" ? 1U : 0U);
    }
    wfd_device_type = 0;
    endUibcWorker();
}

TEST_F(ActionCommandsTest, PlaybackThatCannotStartLeavesNoHandle) {
    const hostplatform::ScopedFault fault(hostplatform::Fault::ThreadCreation);
    rtsp_playback_thread = 0;
    char clip[] = "/sdcard/clip.mp4";
    EXPECT_EQ(miracast_playback_thread_create(clip), EAGAIN);
    EXPECT_EQ(dev_exec_action("DirectStreaming,Start,CodecProfile,H264-0"), 1);  // not looked at
    EXPECT_EQ(rtsp_playback_thread, 0U);
}

TEST_F(ActionCommandsTest, NullTextsAreEmptyOnes) {
    EXPECT_EQ(dev_exec_action(nullptr), -2);
    EXPECT_EQ(sta_generate_event(nullptr), 2);
}

}  // namespace
