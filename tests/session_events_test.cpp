// Reactions to the session client's reports, the workers that they start, and the user's input.
#include "session_events.h"

#include <array>
#include <cstring>
#include <tuple>

#include "DeviceTest.h"
#include "session_workers.h"
#include "uibc.h"

namespace {

using hostplatform::Fault;
using hostplatform::keyEvent;
using hostplatform::Peer;
using hostplatform::touchEvent;

constexpr int kSource = 0;
constexpr int kSink = 1;

class SessionEventsTest : public DeviceTest {
 protected:
    // A session whose client reports nothing by itself. Returns its identifier.
    int startSilentSession(int role) {
        device.session().setPeer(Peer::Silent);
        wfd_device_type = role;
        startSession(1 - role);
        return g_wfd_session_id = device.session().current()->id;
    }

    // A report on this thread.
    static void report(const char* name, const Lines& texts) {
        std::vector<std::array<char, 256>> objects(texts.size());
        for (size_t i = 0; i < texts.size(); ++i) {
            // Without a terminator when the text is 256 bytes long.
            memcpy(objects[i].data(), texts[i].data(), std::min<size_t>(texts[i].size(), 256));
        }
        miracastWfdStringArrayCallback(name, static_cast<int>(texts.size()),
                                       reinterpret_cast<char(*)[256]>(objects.data()), nullptr);
    }

    static bool inject(WFD_uibc_event_t event) {
        return injectEvent(&event, nullptr, nullptr, nullptr);
    }
    static void injectOldest() { manipulateList(uibcItem{0, {}}); }
};

TEST_F(SessionEventsTest, ReadsNothingThatWasNotSent) {
    g_wfd_session_id = 5;
    char one[1][256] = {"STOPPED"};
    miracastWfdStringArrayCallback(nullptr, 0, nullptr, nullptr);
    miracastWfdStringArrayCallback("MMEvent", 5, nullptr, nullptr);
    miracastWfdStringArrayCallback("StreamControlCompleted", -3, nullptr, nullptr);
    miracastWfdStringArrayCallback("AudioEvent", -1, one, nullptr);
    miracastWfdStringArrayCallback("SessionState", 1, one, nullptr);  // one text names no state
    // States and methods fill their text; one without an end is none of them.
    report("SessionState", {"STOPPED" + std::string(249, '\1'), std::string(256, 'P')});
    EXPECT_EQ(g_wfd_session_id, 5);
    // Without a client nothing is called, and a sink's surface is made all the same.
    report("UIBCControlCompleted", {});
    report(nullptr, {"1", "PLAY"});
    report("SessionState", {"NEGOTIATING", "peer"});
    EXPECT_EQ(compositor.layers().size(), 1U);
    EXPECT_EQ(ownCalls("sleep"), Lines{"3000"});
    EXPECT_TRUE(calls().empty());
    // An identifier that was not sent reads as an empty text, which is no number.
    report("SessionState", {"ESTABLISHED", "peer"});
    EXPECT_EQ(g_wfd_session_id, 0);
    report("SessionState", {"NEGOTIATED", "peer"});
    EXPECT_STREQ(wfdSessionId, "");
}

TEST_F(SessionEventsTest, KeepsTheIdentifier) {
    // The last is what wfdSessionId holds afterwards; it held "before".
    const std::tuple<const char*, int32_t, const char*> cases[] = {
        {"00000042", 42, "00000042"},
        {"12 and more text", 12, "12 and more"},
        {"none", 0, "before"},
        {"99999999999999999999", -1, "before"},
    };
    for (const auto& [text, identifier, kept] : cases) {
        report("SessionState", {"NEGOTIATED", "peer", "before"});
        EXPECT_STREQ(wfdSessionId, "before");
        report("SessionState", {"ESTABLISHED", "peer", text});
        EXPECT_EQ(g_wfd_session_id, identifier) << text;
        EXPECT_STREQ(wfdSessionId, kept) << text;
    }
}

TEST_F(SessionEventsTest, StreamStartMakesTheVirtualDisplay) {
    startSilentSession(kSource);
    const android::sp<android::IGraphicBufferProducer> producer =
        new android::IGraphicBufferProducer;
    const std::string address = std::to_string(reinterpret_cast<uintptr_t>(producer.get()));
    const std::string tooLarge = "99999999999999999999999";
    // The last is the number of displays afterwards.
    const std::tuple<const char*, Lines, size_t> cases[] = {
        {"MMEvent", {"MMStreamStarted", "wide", "720", "0", address}, 0},
        {"MMEvent", {"MMStreamStarted", "1280", tooLarge, "0", address}, 0},
        {"MMEvent", {"MMStreamStarted", "1280", "720", "", address}, 0},
        {"MMEvent", {"MMStreamStarted", "1280", "720", "0", tooLarge}, 0},
        // It ends the handling of the report, so its PAUSE is not seen.
        {"MMEvent", {"MMStreamStarted", "PAUSE", "720", "0", address}, 0},
        {"MMEvent", {"MMStreamStarted", "1280", "720", "0"}, 0},
        {"MMEvent", {"Other", "1280", "720", "0", address}, 0},
        {"Other", {"MMStreamStarted", "1280", "720", "0", address}, 0},
        {"MMEvent", {"MMStreamStarted", "640", "480", "1", address}, 1},
        {"StreamControlCompleted", {"TEARDOWN", "1"}, 1},
        {"StreamControlCompleted", {"TEARDOWN"}, 1},
        {"Error", {"Other"}, 1},
        {"Error", {}, 1},
        {"Error", {"RTSPCloseCallback"}, 0},
    };
    for (const auto& [name, texts, count] : cases) {
        report(name, texts);
        const auto displays = compositor.virtualDisplays();
        ASSERT_EQ(displays.size(), count) << testing::PrintToString(texts);
        if (count == 0) continue;
        EXPECT_EQ(displays[0].producer, producer);
        EXPECT_TRUE(displays[0].secure);
        // 1080 x 1920 in 640 x 480
        EXPECT_EQ(displays[0].destination, android::Rect(185, 0, 455, 480));
    }
    EXPECT_EQ(calls(), Lines{"executeRuntimeCommand 3 -> 0"});
}

TEST_F(SessionEventsTest, StartsWorkersByRole) {
    // The numbers of workers started, on a source and on a sink.
    const std::tuple<const char*, Lines, std::array<size_t, 2>> cases[] = {
        {"AudioEvent", {"AudioProxyOpened"}, {1, 0}},
        {"AudioEvent", {"Other"}, {0, 0}},
        {"AudioEvent", {}, {0, 0}},
        {"Other", {"AudioProxyOpened"}, {0, 0}},
        {"Any", {"1", "PAUSE"}, {1, 0}},
        {"Any", {"PAUSE", "1"}, {0, 0}},
        {"Any", {"1", "STANDBY"}, {0, 0}},
        {"Any", {"TEARDOWN", "1"}, {0, 0}},
        {nullptr, {"STANDBY", "1"}, {1, 0}},
        {"Any", {"1", "TEARDOWN"}, {1, 0}},
        {"Any", {"STOPPED", "1"}, {2, 1}},
        {"Any", {"STOPPED", "PAUSE"}, {3, 1}},
        {"Any", {"STOPPED"}, {0, 0}},
    };
    // Each start that fails shows, and on this thread.
    device.faults().set(Fault::ThreadCreation);
    for (const auto& [name, texts, started] : cases) {
        for (const size_t role : {0, 1}) {
            wfd_device_type = static_cast<int>(role);
            mark();
            report(name, texts);
            EXPECT_EQ(journal().count("log", "intent failed: 11", marked()), started[role])
                << testing::PrintToString(texts) << " " << role;
        }
    }
}

TEST_F(SessionEventsTest, RoutesAudio) {
    for (int value : {1, 0, 2}) broadcast_thread(&value);
    broadcast_thread(nullptr);
    callSetDeviceConnectionStateSigma(7);
    callSetDeviceConnectionStateSigma(0);
    std::string states;
    for (const std::string& call : calls("audio")) states += call.substr(17, 2);
    EXPECT_EQ(states, "avunavun");
}

TEST_F(SessionEventsTest, StoppedCleansUpTheSessionThatStopped) {
    const std::string id = std::to_string(startSilentSession(kSink));
    report("SessionState", {"NEGOTIATING", "peer"});
    // A new session is established, on a surface of its own, before the worker gets to the old one.
    device.faults().hold(Fault::SessionStop);
    device.faults().set(Fault::SessionStop);  // it has nothing more to report
    report("SessionState", {"STOPPED", "peer"});
    EXPECT_EQ(g_wfd_session_id, 0);
    ASSERT_TRUE(device.faults().waitHeld(Fault::SessionStop));
    report("SessionState", {"NEGOTIATING", "peer"});
    report("SessionState", {"ESTABLISHED", "peer", "777"});
    device.faults().release(Fault::SessionStop);
    ASSERT_TRUE(journal().waitFor("session", "stopWfdSession id " + id + " -> -1", marked()));
    const auto cleanUp = [this](void* request) {
        EXPECT_EQ(cleanup_thread(request), nullptr);
        return std::pair<int, size_t>(g_wfd_session_id, compositor.layers().size());
    };
    CleanupRequest other{1, 777};  // not a code that it knows
    CleanupRequest earlier{kStopSessionCode, 5};
    CleanupRequest same{kStopSessionCode, 777};
    EXPECT_EQ(cleanUp(&other), std::pair(777, size_t{1}));
    EXPECT_EQ(cleanUp(nullptr), std::pair(777, size_t{1}));
    wfd_device_type = kSource;  // keeps the surface
    EXPECT_EQ(cleanUp(&earlier), std::pair(777, size_t{1}));
    EXPECT_EQ(cleanUp(&same), std::pair(0, size_t{1}));
    wfd_device_type = kSink;
    EXPECT_EQ(cleanUp(&same), std::pair(0, size_t{0}));
}

TEST_F(SessionEventsTest, UibcWorkerInjectsOneEventPerSecond) {
    startSilentSession(kSource);
    report("Any", {"x", "PLAY"});
    ASSERT_TRUE(device.session().waitReported());
    for (const uint16_t key : {'a', 'b', 'c'}) {
        EXPECT_TRUE(device.session().injectInput(keyEvent(key, 0)));
    }
    mark();
    EXPECT_EQ(setUpUibc(), 0);
    ASSERT_TRUE(journal().waitFor("tool", "input keyevent 31", marked()));
    // The worker slept before each of them.
    EXPECT_EQ(calls("tool"),
              (Lines{"input keyevent 29", "input keyevent 30", "input keyevent 31"}));
    Lines sleeps = calls("sleep");
    sleeps.resize(3);
    EXPECT_EQ(sleeps, Lines(3, "1000"));
    wfd_device_type = kSink;
    report("Any", {"1", "TEARDOWN"});
    EXPECT_EQ(uibc_complete_flag, 0);  // not a sink's business
    wfd_device_type = kSource;
    report("Any", {"1", "TEARDOWN"});
    EXPECT_EQ(uibc_complete_flag, 1);
    EXPECT_EQ(journal().count("log", "Exiting worker", marked()), 1U);  // it was waited for
    // Another set-up drops what is queued, and makes no second worker.
    EXPECT_TRUE(inject(keyEvent('d', 0)));
    EXPECT_EQ(setUpUibc(), 0);
    EXPECT_TRUE(myList->empty());
    report("Any", {"1", "TEARDOWN"});
}

TEST_F(SessionEventsTest, TranslatesInput) {
    const std::pair<unsigned, int> keys[] = {
        {'0', 7},   {'9', 16},  {'a', 29},  {'A', 29}, {'z', 54},  {'Z', 54},
        {'\b', 67}, {'\t', 61}, {'\r', 66}, {27, 111}, {' ', 62},  {'!', 8},
        {'#', 18},  {'$', 11},  {'%', 12},  {'&', 14}, {'(', 162}, {')', 163},
        {'*', 17},  {',', 55},  {'.', 56},  {'/', 76}, {'@', 77},  {'^', 13},
        {127, 112}, {'~', 0},   {'\n', 0},  {0, 0},    {0x141, 0}, {0xffffffff, 0}};
    for (const auto& [keysym, code] : keys) EXPECT_EQ(keysym2keycode(keysym), code) << keysym;
    const std::pair<WFD_uibc_event_t, Lines> events[] = {
        {keyEvent('~', 0), {"input keyevent 0"}}, {keyEvent('a', 1), {}},
        {touchEvent(0), {"input tap 400 500"}},   {touchEvent(1), {}},
        {touchEvent(2), {"input tap 300 1000"}},  {WFD_uibc_event_t{2, 0, {}}, {}},
    };
    for (const auto& [event, tools] : events) {
        EXPECT_TRUE(inject(event));
        EXPECT_TRUE(inject(keyEvent('a', 0)));
        mark();
        manipulateList(uibcItem{2, {}});  // no operation of this number
        injectOldest();
        EXPECT_EQ(calls("tool"), tools);
        injectOldest();
        injectOldest();
        EXPECT_EQ(calls("tool").size(), tools.size() + 1);
    }
    EXPECT_FALSE(injectEvent(nullptr, nullptr, nullptr, nullptr));
}

}  // namespace
