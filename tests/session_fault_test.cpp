// What the commands of a session make of a device that fails them.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "Compositor.h"
#include "FaultTest.h"
#include "TextFormat.h"
#include "session_events.h"
#include "sink_surface.h"
#include "uibc.h"
#include "virtual_display.h"

using hostplatform::Fault;
using hostplatform::format;

namespace {

constexpr int kSource = 0;
constexpr int kSink = 1;
const std::string kFrame = "framename,RTSP,RtspMsgType,";

class Producer : public android::IGraphicBufferProducer {};

class SessionFaultTest : public FaultTest {
 protected:
    ~SessionFaultTest() override {
        endSession();
        deleteSurface();
        releaseVDS();
        wfd_device_type = kSource;
        endUibcWorker();
    }

    static std::string started(int result, char* response) {
        std::string text = format("%d %s", result, response == nullptr ? "nothing" : "session");
        free(response);
        return text;
    }
    static std::string start() {
        char* response = nullptr;
        const int result = start_wfd_connection("", "192.168.49.2", 7236, kSink, &response);
        return started(result, response);
    }
    static std::string connectGo() {
        char* response = nullptr;
        const int result = connect_go_start_wfd("", "192.168.49.2", 7236, kSink, &response);
        return started(result, response);
    }

    // Ends the session, if there is one, and waits for the worker that stops its client.
    void endSession() const {
        EXPECT_TRUE(hostplatform::waitReported());
        const bool running = g_wfd_session_id != 0;
        const uint64_t begin = journal().mark();
        sta_reset_default("");
        if (running) {
            EXPECT_TRUE(journal().waitFor("session", "stopWfdSession", begin));
        }
        EXPECT_TRUE(hostplatform::waitReported());
    }

    // A command's result and what it asked the session client for, without identifiers.
    std::string asking(int (*command)(const char*), const std::string& text) const {
        const uint64_t begin = journal().mark();
        std::string outcome = std::to_string(command(text.c_str()));
        for (const hostplatform::JournalEntry& entry : journal().entries(begin)) {
            if (entry.component != "session" || entry.thread != gettid()) continue;
            const std::string& call = entry.text;
            outcome += ", " + call.substr(0, call.find(' ')) + call.substr(call.rfind(" -> "));
        }
        EXPECT_TRUE(hostplatform::waitReported());
        return outcome;
    }
    auto sending(const std::string& frame) const {
        return [=] { return asking(dev_send_frame, kFrame + frame); };
    }

    static void report(const char* first, const char* second) {
        char objects[2][256] = {};
        snprintf(objects[0], sizeof objects[0], "%s", first);
        snprintf(objects[1], sizeof objects[1], "%s", second);
        miracastWfdStringArrayCallback("Any", 2, objects, nullptr);
    }
    // What another thread did for the report: "done", or "nothing" once it is certain that it
    // will not.
    std::string after(const char* first, const char* second, const char* component,
                      const char* text) const {
        const uint64_t begin = journal().mark();
        report(first, second);
        if (journal().count("log", "pthread_create for broadcasting intent failed", begin) != 0) {
            return "nothing";
        }
        return journal().waitFor(component, text, begin) ? "done" : "not done";
    }
};

TEST_F(SessionFaultTest, Starts) {
    const std::string noMemory = "E/: vestor: Calloc failed for session id";
    check(
        {
            {"no memory", device(Fault::Allocation), start, "-1 nothing", {noMemory}, "0 session"},
            {"no memory for a group owner",
             device(Fault::Allocation),
             connectGo,
             "-1 nothing",
             {noMemory},
             "0 session"},
            {"no client",
             device(Fault::SessionClient),
             start,
             "-1 nothing",
             {"E/: Failed to instantiate client!"},
             "0 session"},
            {"refused by the client",
             device(Fault::SessionCreation, -5),
             start,
             "-1 nothing",
             {"E/: Waiting for session ID\n", "E/: Obtained session ID 0"},
             "0 session"},
        },
        [this] { endSession(); });
}

// Most requests are answered for as soon as they are made: what the client says is its own.
TEST_F(SessionFaultTest, RunningSession) {
    ASSERT_EQ(start(), "0 session");
    const auto client = device(Fault::SessionControl, -3);
    check(
        {
            {"pause", client, sending("PAUSE"), "1, pause_rtsp -> -3", {}, "1, pause_rtsp -> 0"},
            {"play", client, sending("PLAY"), "1, play_rtsp -> -3", {}, "1, play_rtsp -> 0"},
            {"standby",
             client,
             sending("SET_PARAMETER,SetParameter,standby"),
             "1, standby_rtsp -> -3",
             {},
             "1, standby_rtsp -> 0"},
            {"format",
             client,
             sending("SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateProfile,H264-1"),
             "1, sendAvFormatChange -> -3",
             {},
             "1, sendAvFormatChange -> 0"},
            {"transport",
             client,
             sending("SETUP"),
             "1, negotiateRtpTransport -> -3",
             {},
             "1, negotiateRtpTransport -> 0"},
            {"direct streaming",
             client,
             [this] { return asking(dev_exec_action, "DirectStreaming,Start"); },
             "-2, executeRuntimeCommand -> -3",
             {},
             "-2, executeRuntimeCommand -> 0"},
            {"IDR request",
             client,
             [this] {
                 wfd_device_type = kSink;
                 return asking(sta_generate_event, "Type,IdrReq");
             },
             "0, sendIDRRequest -> -3",
             {},
             "0, sendIDRRequest -> 0"},
            {"surface",
             client,
             [] { return std::to_string(setWFDSurface()); },
             "-3",
             {"E/: setsurface returned -3"},
             "0"},
            {"teardown",
             client,
             sending("TEARDOWN"),
             "1, teardown_rtsp -> -3",
             {},
             "1, teardown_rtsp -> 0"},
        },
        [] { wfd_device_type = kSource; });
}

TEST_F(SessionFaultTest, Surfaces) {
    const std::string begun = "E/: Retrieving surface \n";
    const std::string connected = "E/: Retrieving surfaceComposerClient \n";
    const std::string noLayer = "E/: Retrieving surface Control failed\n";
    const auto surface = [] {
        if (getSurface() == nullptr) return std::string("none");
        const auto layer = hostplatform::Compositor::instance().layers().at(0);
        return format("%u x %u", layer.width, layer.height);
    };
    check(
        {
            {"no compositor",
             device(Fault::CompositorConnection),
             surface,
             "none",
             {begun},
             "1080 x 1920"},
            {"no display",
             device(Fault::NoInternalDisplay),
             surface,
             "none",
             {begun, connected, "E/: Failed to find any physcial display!\n"},
             "1080 x 1920"},
            // The size is guessed then.
            {"no state",
             device(Fault::DisplayStateQuery),
             surface,
             "800 x 640",
             {begun},
             "1080 x 1920"},
            {"no size",
             device(Fault::DisplayConfigQuery),
             surface,
             "800 x 640",
             {begun},
             "1080 x 1920"},
            {"no layer",
             device(Fault::LayerCreation),
             surface,
             "none",
             {begun, connected, noLayer},
             "1080 x 1920"},
            {"a layer in vain",
             device(Fault::LayerHandle),
             surface,
             "none",
             {begun, connected, noLayer},
             "1080 x 1920"},
            {"a layer without a surface",
             device(Fault::LayerSurface),
             surface,
             "none",
             {begun, connected},
             "1080 x 1920"},
        },
        [] {
            deleteSurface();
            EXPECT_EQ(hostplatform::Compositor::instance().openConnections(), 0);
        });

    mmSessionInfo info{};
    const android::sp<android::IGraphicBufferProducer> producer = new Producer;
    info.width = 1280;
    info.height = 720;
    info.producer = producer.get();
    const auto display = [&info] { return std::to_string(createVDS(&info)); };
    const std::string source = "E/: Source module provided surface\n";
    check(
        {
            {"no display to show",
             device(Fault::NoInternalDisplay),
             display,
             "0",
             {source, "E/: Failed to find any physcial display!\n"},
             "0"},
            {"no state of it",
             device(Fault::DisplayStateQuery, -7),
             display,
             "-7",
             {source, "E/: Can't get display state -7\n"},
             "0"},
            {"no size of it",
             device(Fault::DisplayConfigQuery, -7),
             display,
             "0",
             {source, "E/: Destination Width = 720 , Height = 720 "},  // an immense square's
             "0"},
            {"no virtual display",
             device(Fault::VirtualDisplayCreation),
             display,
             "-1",
             {source, "E/: Destination Width = ", "E/: Can't configure VDS err = -1"},
             "0"},
        },
        [] {
            EXPECT_LE(hostplatform::Compositor::instance().virtualDisplays().size(), 1U);
            releaseVDS();
            EXPECT_TRUE(hostplatform::Compositor::instance().virtualDisplays().empty());
        });
}

TEST_F(SessionFaultTest, Workers) {
    const std::string failed = "E/: pthread_create for broadcasting intent failed: ";
    const auto route = [this] { return after("any", "PAUSE", "audio", "unavailable"); };
    const auto stopped = [this] {
        return after("STOPPED", "1", "log", "Disable WFD and cleanup \n");
    };
    const auto uibc = [this] {
        const std::string result = std::to_string(setUpUibc());
        const size_t workers = journal().count("log", "Worker thread created!\n", marked());
        return result + (workers == 0 ? ", no worker" : ", worker");
    };
    const auto clip = [this] {
        rtsp_playback_thread = 0;
        const int result = dev_exec_action("DirectStreaming,Start,CodecProfile,H264-0");
        if (rtsp_playback_thread != 0) pthread_join(rtsp_playback_thread, nullptr);
        return format("%d, tools %zu", result, calls("tool").size());
    };
    const auto key = [this] {
        WFD_uibc_event_t event = hostplatform::keyEvent('a', 0);
        const bool taken = injectEvent(&event, nullptr, nullptr, nullptr);
        manipulateList(uibcItem{0, {}});
        return format("%s, tools %zu", taken ? "taken" : "refused", calls("tool").size());
    };
    check(
        {
            {"no thread for audio",
             device(Fault::ThreadCreation),
             route,
             "nothing",
             {failed + "11"},
             "done"},
            {"no memory for audio",
             system(SystemCall::ReservedNew, ENOMEM),
             route,
             "nothing",
             {failed + "12"},
             "done"},
            {"no routing",
             device(Fault::AudioRouting, -38),
             route,
             "done",
             {"return val: -38"},
             "done"},
            {"no thread for the end",
             device(Fault::ThreadCreation),
             stopped,
             "nothing",
             {failed + "11", "E/: Received Stopped \n", failed + "11"},
             "done"},
            {"no thread for input",
             device(Fault::ThreadCreation),
             uibc,
             "0, no worker",
             {"E/: Worker thread creation failed res = 11\n"},
             "0, worker"},
            {"no thread for a clip",
             device(Fault::ThreadCreation),
             clip,
             "1, tools 1",
             {},
             "1, tools 3"},
            {"no shell for a clip",
             system(SystemCall::Shell, EAGAIN, 3),
             clip,
             "1, tools 0",
             {},
             "1, tools 3"},
            {"no shell for a key",
             system(SystemCall::Shell, EAGAIN),
             key,
             "taken, tools 0",
             {"E/: UIBC[Src]KEY DOWN\n", "E/: UIBC[Src]Done injecting event\n\n"},
             "taken, tools 1"},
        },
        endUibcWorker);
}

}  // namespace
