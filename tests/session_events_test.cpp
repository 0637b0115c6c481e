#include "session_events.h"

#include <array>
#include <cstring>

#include "Compositor.h"
#include "DeviceTest.h"
#include "Faults.h"
#include "uibc.h"
#include "virtual_display.h"

namespace {

using hostplatform::Compositor;
using hostplatform::Fault;
using hostplatform::waitReported;

constexpr int kSource = 0;
constexpr int kSink = 1;

class SessionEventsTest : public FastDeviceTest {
 protected:
    ~SessionEventsTest() override {
        sta_reset_default("");
        deleteSurface();
        releaseVDS();
        wfd_device_type = kSource;
        endUibcWorker();
    }

    // A session whose client reports nothing by itself.
    void startSilentSession(int role) {
        hostplatform::setPeer(hostplatform::Peer::Silent);
        wfd_device_type = role;
        ASSERT_EQ(startWfdConnection("", "192.168.49.2", 7236, 1 - role, nullptr, nullptr), 0);
        mark();
    }

    // A report on this thread; the count may be other than that of the texts.
    static void report(const char* name, const std::vector<std::string>& texts, int count = -1) {
        std::vector<std::array<char, 256>> objects(texts.size());
        for (size_t i = 0; i < texts.size(); ++i) {
            // Without a terminator when the text is 256 bytes long.
            memcpy(objects[i].data(), texts[i].data(), std::min<size_t>(texts[i].size(), 256));
        }
        miracastWfdStringArrayCallback(name, count < 0 ? static_cast<int>(texts.size()) : count,
                                       reinterpret_cast<char(*)[256]>(objects.data()), nullptr);
    }

    bool waitForLog(const std::string& text) const {
        return journal().waitFor("log", text, marked()).has_value();
    }
};

TEST_F(SessionEventsTest, LogsEveryReport) {
    report("Something", {"one", std::string(256, 'x')});
    std::vector<std::string> log = {"\nReceived WFD event Something\n", "0. one \n",
                                    "1. " + std::string(256, 'x') + " \n"};
    EXPECT_EQ(logLines(), log);
    mark();
    report("MMEvent", {"MMStreamStarted", "1280", "720", "0"});
    EXPECT_EQ(logLines().back(), "MMEvent num_objects = 4\n");
    EXPECT_TRUE(Compositor::instance().virtualDisplays().empty());
}

TEST_F(SessionEventsTest, ReadsNothingThatWasNotSent) {
    g_wfd_session_id = 5;
    miracastWfdStringArrayCallback(nullptr, 0, nullptr, nullptr);
    miracastWfdStringArrayCallback("MMEvent", 5, nullptr, nullptr);
    miracastWfdStringArrayCallback("StreamControlCompleted", -3, nullptr, nullptr);
    char one[1][256] = {"STOPPED"};
    miracastWfdStringArrayCallback("AudioEvent", -1, one, nullptr);
    miracastWfdStringArrayCallback("SessionState", 1, one, nullptr);  // one text names no state
    EXPECT_EQ(g_wfd_session_id, 5);
    EXPECT_FALSE(logged("Received Stopped \n"));

    // An identifier that was not sent reads as an empty text, which is no number.
    report("SessionState", {"ESTABLISHED", "peer"});
    EXPECT_EQ(g_wfd_session_id, 0);
    EXPECT_TRUE(logged("Conversion failed with error 22"));
    report("SessionState", {"NEGOTIATED", "peer"});
    EXPECT_STREQ(wfdSessionId, "");
    // States and methods fill their text; one without an end is none of them.
    g_wfd_session_id = 5;
    report("SessionState", {"STOPPED" + std::string(249, '\1'), std::string(256, 'P')});
    EXPECT_EQ(g_wfd_session_id, 5);
    g_wfd_session_id = 0;
}

TEST_F(SessionEventsTest, WithoutAClientNothingIsCalled) {
    ASSERT_EQ(gWFDClient, nullptr);
    report("UIBCControlCompleted", {});
    report(nullptr, {"1", "PLAY"});
    report("SessionState", {"NEGOTIATING", "peer"});
    EXPECT_EQ(logLines().back(), "Received SetWFDSurface \n");
    EXPECT_EQ(Compositor::instance().layers().size(), 1U);
    CleanupRequest request{2, 1};
    EXPECT_EQ(cleanup_thread(&request), nullptr);
    EXPECT_EQ(cleanup_thread(nullptr), nullptr);
    EXPECT_TRUE(calls().empty());
}

TEST_F(SessionEventsTest, KeepsTheIdentifier) {
    struct {
        const char* text;
        int32_t identifier;
        const char* kept;  // in wfdSessionId, which held "before"
        const char* failure;
    } const cases[] = {
        {"1234", 1234, "1234", nullptr},
        {"00000042", 42, "00000042", nullptr},
        {"123456789", 123456789, "123456789", nullptr},
        {"12 and more text", 12, "12 and more", nullptr},
        {"none", 0, "before", "Conversion failed with error 22"},
        {"99999999999999999999", -1, "before", "Conversion failed with error 34"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        report("SessionState", {"NEGOTIATED", "peer", "before"});
        EXPECT_STREQ(wfdSessionId, "before");
        mark();
        report("SessionState", {"ESTABLISHED", "peer", c.text});
        EXPECT_EQ(g_wfd_session_id, c.identifier);
        EXPECT_STREQ(wfdSessionId, c.kept);
        if (c.failure != nullptr) {
            EXPECT_EQ(logLines().back(), c.failure);
        }
    }
    report("SessionState", {"NEGOTIATED", "peer", "1234567890123"});
    EXPECT_STREQ(wfdSessionId, "12345678901");
    g_wfd_session_id = 0;
}

TEST_F(SessionEventsTest, StreamStartMakesTheVirtualDisplay) {
    startSilentSession(kSource);
    class TestProducer : public android::IGraphicBufferProducer {};
    const android::sp<android::IGraphicBufferProducer> producer = new TestProducer;
    const std::string address = std::to_string(reinterpret_cast<uintptr_t>(producer.get()));

    struct {
        std::vector<std::string> texts;
        const char* failure;
    } const bad[] = {
        {{"MMStreamStarted", "wide", "720", "0", address}, "Conversion failed with error 22"},
        {{"MMStreamStarted", "1280", "99999999999999999999", "0", address},
         "Conversion failed with error 34"},
        {{"MMStreamStarted", "1280", "720", "", address}, "Conversion failed with error 22"},
        {{"MMStreamStarted", "1280", "720", "0", "99999999999999999999999"},
         "Conversion failed with error 34"},
    };
    for (const auto& c : bad) {
        report("MMEvent", c.texts);
        EXPECT_EQ(logLines().back(), c.failure);
    }
    // It ends the handling of the report, so its PAUSE is not seen.
    report("MMEvent", {"MMStreamStarted", "PAUSE", "720", "0", address});
    EXPECT_FALSE(logged("Broadcasting intent with 0\n"));
    EXPECT_TRUE(Compositor::instance().virtualDisplays().empty());
    EXPECT_TRUE(calls().empty());

    report("MMEvent", {"MMStreamStarted", "640", "480", "1", address});
    const auto displays = Compositor::instance().virtualDisplays();
    ASSERT_EQ(displays.size(), 1U);
    EXPECT_EQ(displays[0].producer, producer);
    EXPECT_TRUE(displays[0].secure);
    EXPECT_EQ(displays[0].destination,
              android::Rect(185, 0, 455, 480));  // 1080 x 1920 in 640 x 480
    EXPECT_EQ(calls(), std::vector<std::string>{"executeRuntimeCommand 3 -> 0"});

    report("StreamControlCompleted", {"TEARDOWN", "1"});  // the method is not there
    EXPECT_EQ(Compositor::instance().virtualDisplays().size(), 1U);
    report("Error", {"RTSPCloseCallback"});
    EXPECT_TRUE(logged("WFDDBUG: RTSPCloseCallback Received! Release VDS \n"));
    EXPECT_TRUE(Compositor::instance().virtualDisplays().empty());
}

TEST_F(SessionEventsTest, StartsWorkersByRole) {
    struct {
        const char* name;
        std::vector<std::string> texts;
        size_t onSource;  // workers started
        size_t onSink;
    } const cases[] = {
        {"AudioEvent", {"AudioProxyOpened"}, 1, 0},
        {"Other", {"AudioProxyOpened"}, 0, 0},
        {"Any", {"1", "PAUSE"}, 1, 0},
        {"Any", {"PAUSE", "1"}, 0, 0},
        {nullptr, {"STANDBY", "1"}, 1, 0},
        {"Any", {"1", "STANDBY"}, 0, 0},
        {"Any", {"1", "TEARDOWN"}, 1, 0},
        {"Any", {"TEARDOWN", "1"}, 0, 0},
        {"Any", {"STOPPED", "1"}, 2, 1},
        {"Any", {"STOPPED", "PAUSE"}, 3, 1},
        {"Any", {"stopped", "1"}, 0, 0},
        {"Any", {"STOPPED"}, 0, 0},
        {"Any", {"1", "PLAY"}, 0, 0},
    };
    // Every start that is tried shows, and in this thread, when none succeeds.
    const hostplatform::ScopedFault fault(Fault::ThreadCreation);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.texts[0] << " " << c.texts.back());
        for (const int role : {kSource, kSink}) {
            wfd_device_type = role;
            mark();
            report(c.name, c.texts);
            EXPECT_EQ(journal().count("log", "broadcasting intent failed: 11 \n", marked()),
                      role == kSource ? c.onSource : c.onSink);
        }
    }
}

TEST_F(SessionEventsTest, RoutesAudioToTheProxyAndBack) {
    const std::string device = "device 0x2000000 ";
    const std::string rest = "available address \"\" name \"\" format 0 -> 0";
    report("AudioEvent", {"AudioProxyOpened"});
    ASSERT_TRUE(waitForLog("return val: 0 \n"));
    EXPECT_EQ(calls("audio"), std::vector<std::string>{device + rest});
    mark();
    report("Any", {"1", "PAUSE"});
    ASSERT_TRUE(waitForLog("return val: 0 \n"));
    EXPECT_EQ(calls("audio"), std::vector<std::string>{device + "un" + rest});
}

TEST_F(SessionEventsTest, AudioWorkerDoesAsItIsTold) {
    int value = 1;
    broadcast_thread(&value);
    value = 0;
    broadcast_thread(&value);
    value = 2;
    broadcast_thread(&value);
    broadcast_thread(nullptr);
    {
        const hostplatform::ScopedFault fault(Fault::AudioRouting, -38);
        callSetDeviceConnectionStateSigma(7);
        callSetDeviceConnectionStateSigma(0);
    }
    const std::vector<std::string> expected = {
        "Val = 1 \n",
        "Play Received broadcasting intent \n",
        "Enable routing to proxy for audio!\n",
        "Audio System Proxy enable for device: 2000000\n",
        "return val: 0 \n",
        "Val = 0 \n",
        "Pause/Teardown/Standby Received broadcasting intent \n",
        "Disable routing to proxy for audio!\n",
        "Audio System Proxy disable for device: 2000000\n",
        "return val: 0 \n",
        "Val = 2 \n",
        "Audio System Proxy enable for device: 2000000\n",
        "return val: -38 \n",
        "Audio System Proxy disable for device: 2000000\n",
        "return val: -38 \n",
    };
    EXPECT_EQ(logLines(), expected);
    EXPECT_EQ(calls("audio").size(), 4U);
}

TEST_F(SessionEventsTest, PlayEnablesUibcAndItsCompletionStartsIt) {
    startSilentSession(kSource);
    const int id = hostplatform::currentSession()->id;
    g_wfd_session_id = id;
    report("AnyName", {"x", "PLAY"});
    EXPECT_TRUE(logged("Enable UIBC for sessionID " + std::to_string(id) + "\n"));
    ASSERT_TRUE(journal().waitFor("session", "startUIBC -> 0", marked()));
    EXPECT_TRUE(logged("UIBCControlCompleted Callback received!\n"));
    EXPECT_TRUE(logged("Calling startUIBC()\n"));
    ASSERT_TRUE(waitReported());
    EXPECT_TRUE(hostplatform::injectInput(hostplatform::keyEvent('a', 0)));
    EXPECT_EQ(myList.size(), 1U);
    flushUIBCList();
}

TEST_F(SessionEventsTest, TeardownEndsTheUibcWorkerOnce) {
    wfd_device_type = kSink;
    setUpUibc();
    report("Any", {"1", "TEARDOWN"});
    EXPECT_EQ(uibc_complete_flag, 0);  // not a sink's business

    wfd_device_type = kSource;
    report("Any", {"1", "TEARDOWN"});
    EXPECT_EQ(uibc_complete_flag, 1);
    EXPECT_TRUE(logged("UIBC[Src]Teardown received. Initiate UIBC termination\n"));
    EXPECT_TRUE(logged("UIBC[Src]Notify worker thread to exit\n"));
    EXPECT_TRUE(logged("UIBC[Src]Exiting worker thread loop\n"));  // it was waited for
    report("Any", {"1", "TEARDOWN"});
}

TEST_F(SessionEventsTest, StoppedCleansUpTheSessionThatStopped) {
    startSilentSession(kSink);
    const int id = hostplatform::currentSession()->id;
    report("SessionState", {"NEGOTIATING", "peer"});
    EXPECT_TRUE(logged("setsurface returned 0"));
    EXPECT_EQ(logLines().back(), "Received SetWFDSurface \n");
    ASSERT_EQ(Compositor::instance().layers().size(), 1U);
    g_wfd_session_id = id;
    // The client has stopped it already, and so has nothing more to report.
    const hostplatform::ScopedFault stopped(Fault::SessionControl);
    report("SessionState", {"STOPPED", "peer"});
    // A new session is established before the worker gets there: it keeps its identifier.
    report("SessionState", {"ESTABLISHED", "peer", "777"});
    ASSERT_TRUE(journal().waitFor("session", "stopWfdSession id " + std::to_string(id) + " -> -1",
                                  marked()));
    ASSERT_TRUE(journal().waitFor("compositor", "removed", marked()));
    EXPECT_EQ(g_wfd_session_id, 777);

    CleanupRequest other{1, 777};
    mark();
    cleanup_thread(&other);  // not a code that it knows
    EXPECT_TRUE(logLines().empty());
    CleanupRequest same{2, 777};
    cleanup_thread(&same);
    EXPECT_EQ(g_wfd_session_id, 0);
}

}  // namespace
