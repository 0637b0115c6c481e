// The commands of a session, where a script cannot tell: values at their limits, waits, and what a
// command leaves behind. What each command makes the device do is in the transcripts.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include "DeviceTest.h"
#include "SystemFaults.h"
#include "local_address.h"
#include "uibc.h"

namespace {

using hostplatform::Fault;
using hostplatform::Peer;

constexpr int kSource = 0;
constexpr int kSink = 1;

using SessionTest = DeviceTest;

TEST_F(SessionTest, FindsParameters) {
    const std::string fits(511, 'v');
    const std::string longest = "n," + fits;
    const std::string longer = longest + "v";
    // The last is what the buffer holds afterwards; it held "old".
    const std::tuple<const char*, const char*, int, int, std::string> cases[] = {
        {"UIBCEventType,x,Type,y", "Type", 32, 0, "x"},  // found inside the longer name
        {"NAME=abc,more", "name", 32, 0, "abc"},
        {"a,,b,c", "a", 32, 0, ""},
        {"x,name", "name", 32, 0, ""},   // ends with its name
        {"x,name,", "name", 32, 0, ""},  // or with the separator
        {"a,b", "c", 32, -1, "old"},
        {nullptr, "c", 32, -1, "old"},
        {"a,b", nullptr, 32, -1, "old"},
        {"n,1234567,x,y", "n", 8, 0, "1234567"},
        {"n,12345678,x,y", "n", 8, 0, "old"},
        {longest.c_str(), "n", 512, 0, fits},
        {longer.c_str(), "n", 1000, 0, "old"},  // no buffer takes more than 511 characters
        {"n,,x", "n", 0, 0, "old"},
        {"n,x", "n", -1, 0, "old"},
    };
    for (const auto& [command, name, size, result, value] : cases) {
        char buffer[1024] = "old";
        EXPECT_EQ(get_param(command, name, buffer, size), result) << command;
        EXPECT_EQ(buffer, value) << command;
    }
    EXPECT_EQ(get_param("n,x", "n", nullptr, 32), 0);
}

TEST_F(SessionTest, WaitsInDeviceTime) {
    static char clip[] = "clip";
    const auto withoutSession = [] {
        hostplatform::device().session().setPeer(Peer::Silent);
        char text[12] = "";
        const int result = startWfdConnection("", "10.0.0.9", 1, 1, text, nullptr);
        return strcmp(text, "NULL") == 0 ? result : 0;
    };
    // The last is what this thread sleeps, in milliseconds.
    const std::tuple<int (*)(), int, Lines> cases[] = {
        {[] { return sta_reset_default(nullptr); }, 0, {"1000"}},
        {[] { return dev_exec_action("DirectStreaming,Start"); }, -2, {"1000"}},
        {[] { return dev_exec_action("DirectStreaming,Stop"); }, 1, {}},
        {[] { return miracast_playback_thread_entry(clip) == nullptr ? 0 : 1; }, 0, {"2000"}},
        {[] { return cmd_generate_UIBCEvent(0); }, 0, Lines(20, "500")},
        {[] { return cmd_generate_UIBCEvent(3); }, -1, {}},
        {[] { return sta_generate_event("UIBCEventType,other"); }, 0, {}},
        {[] { return sta_generate_event("UIBCEventType,"); }, 0, {"1000"}},
        {withoutSession, -1, Lines(60, "1000")},
    };
    for (const auto& [command, result, sleeps] : cases) {
        mark();
        EXPECT_EQ(command(), result);
        EXPECT_EQ(ownCalls("sleep"), sleeps);
    }
}

TEST_F(SessionTest, NullTextsAreEmpty) {
    EXPECT_EQ(dev_exec_action(nullptr), -2);
    EXPECT_EQ(sta_generate_event(nullptr), 2);
    EXPECT_EQ(dev_send_frame(nullptr), 0);
    EXPECT_EQ(sta_preset_testparameters("mdns_disc,disable", nullptr), -1);
    char* response = nullptr;
    EXPECT_EQ(sta_preset_testparameters(nullptr, &response), 0);
    wfd_device_type = kSink;
    EXPECT_EQ(connect_go_start_wfd("", "192.168.49.2", 7236, kSink, nullptr), -1);
    EXPECT_EQ(wfd_device_type, kSink);  // left as it is
    EXPECT_EQ(start_wfd_connection("", "192.168.49.2", 7236, kSink, nullptr), -1);
    EXPECT_EQ(wfd_device_type, kSource);  // taken on before anything else
    EXPECT_TRUE(calls().empty());
    wfd_version = 2;
    EXPECT_EQ(sta_reset_default(nullptr), 0);
    EXPECT_EQ(wfd_version, 2);
    EXPECT_EQ(sta_reset_default(""), 0);
    EXPECT_EQ(wfd_version, 1);
    startSession(kSink);
    EXPECT_EQ(setParameter(0, 0, nullptr), -1);
    EXPECT_EQ(setParameter(0, 0, "H264-\xff"), -1);
    EXPECT_TRUE(calls().empty());
}

TEST_F(SessionTest, ResetEndsTheSession) {
    wfd_device_type = kSink;
    startSession(kSource);
    EXPECT_EQ(compositor.layers().size(), 1U);
    device.faults().set(Fault::SessionControl);  // so that no report ends it
    EXPECT_EQ(sta_reset_default(""), 0);
    EXPECT_EQ(calls().front().substr(0, 20), "teardown_rtsp flag 0");
    EXPECT_EQ(g_wfd_session_id, 0);
    EXPECT_TRUE(compositor.layers().empty());
}

TEST_F(SessionTest, StartDescribesBothEnds) {
    device.session().setPeer(Peer::Silent);
    const char* const text = "a text of more than thirty-one characters";
    g_wfd_session_id = 99;
    EXPECT_EQ(startWfdConnection("unread", nullptr, -100, kSource, nullptr, nullptr), 0);
    EXPECT_EQ(calls().back(), "createWfdSession as sink, local \"\", peer \"\" port -100 -> 0");
    EXPECT_EQ(startWfdConnection("", text, 1, kSink, nullptr, text), 0);
    EXPECT_EQ(calls().back(),
              "createWfdSession as source, local \"a text of more than thirty-one \", "
              "peer \"a text of more than thirty-one \" port 1 -> 0");
    EXPECT_EQ(g_wfd_session_id, 0);
}

TEST_F(SessionTest, StartAnswersTheIdentifier) {
    for (const auto& [id, expected] : {std::pair(7, "00000007"), {123456789, "123456789"}}) {
        device.session().setNextSessionId(id);
        char text[12] = "";
        EXPECT_EQ(startWfdConnection("", "192.168.49.2", 7236, 1, text, nullptr), 0);
        EXPECT_STREQ(text, expected);
        EXPECT_EQ(wfdSessionId, std::to_string(id));
    }
    // The client's own result is the command's, also after the wait; only -1 takes the response.
    device.faults().set(Fault::SessionCreation, -5);
    device.session().setPeer(Peer::Silent);
    device.clock().onSleep([](uint32_t) { g_wfd_session_id = 31; });
    char* response = nullptr;
    EXPECT_EQ(start_wfd_connection("", "192.168.49.2", 7236, 1, &response), -5);
    EXPECT_STREQ(response, "00000031");
    free(response);
    device.clock().onSleep({});
    EXPECT_EQ(startWfdConnection("", "192.168.49.2", 7236, 1, nullptr, nullptr), -5);

    device.session().setPeer(Peer::Refuses);
    EXPECT_EQ(connect_go_start_wfd("", "192.168.49.2", 7236, 1, &response), -1);
    EXPECT_EQ(response, nullptr);
}

TEST_F(SessionTest, ControlsNeedAClient) {
    // The results: without a client, and with one that fails every call with -42.
    const std::tuple<int (*)(), int, int> cases[] = {
        {[] { return teardownRtsp(g_wfd_session_id, 7); }, -1, 0},
        {[] { return pauseRtsp(1); }, -1, 0},
        {[] { return playRtsp(1); }, -1, 0},
        {[] { return standbyRtsp(1); }, -1, 0},
        {[] { return setParameter(1, 0, "AAC"); }, -1, 0},
        {[] { return transportswitch(1, 1); }, -1, 0},
        {[] { return enableDirectStreaming(); }, 0, -42},
        {[] { return sendIDRRequest(); }, -1, -42},
    };
    for (const auto& [call, without, failing] : cases) EXPECT_EQ(call(), without);
    startSession(kSource);
    device.faults().set(Fault::SessionControl, -42);
    for (const auto& [call, without, failing] : cases) EXPECT_EQ(call(), failing);
    EXPECT_EQ(calls().size(), std::size(cases));
    EXPECT_EQ(calls().front().substr(0, 20), "teardown_rtsp flag 1");  // whatever is not 0
}

TEST_F(SessionTest, ReadsTheInterfacesAddress) {
    char text[] = "a buffer of 21 bytes";
    EXPECT_EQ(getSigmaLocalIpAddress(text, 20, "lo"), 0);
    EXPECT_STREQ(text, "127.0.0.1");
    EXPECT_EQ(getSigmaLocalIpAddress(text, 19, "lo"), -1);
    EXPECT_EQ(getSigmaLocalIpAddress(nullptr, 20, "lo"), -1);
    for (const char* const name :
         {"none0", "lo and more than fifteen", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(getSigmaLocalIpAddress(text, 20, name), -1) << name;
    }
    const SystemFault noSocket(SystemCall::Socket, EMFILE);
    EXPECT_EQ(getSigmaLocalIpAddress(text, 20, "lo"), -1);
}

}  // namespace
