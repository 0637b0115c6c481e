// What each command answers while something under it fails, and once it works again.
#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "DiscoveryTest.h"
#include "SystemFaults.h"
#include "WFDTriggerTcpServer.h"
#include "cutils/properties.h"
#include "host/ScopedFault.h"
#include "host/text_format.h"
#include "session_events.h"
#include "sink_surface.h"
#include "uibc.h"
#include "virtual_display.h"

using hostplatform::Fault;
using hostplatform::format;

namespace {

using FaultsTest = DeviceTest;
using DiscoveryFaultsTest = DiscoveryTest;

using Ends = std::shared_ptr<void>;  // ends the fault when it goes
using Fails = std::function<Ends()>;

Fails fault(Fault which, int status = -1) {
    return [=] { return std::make_shared<hostplatform::ScopedFault>(which, status); };
}
// The command has to make the call: otherwise it would show nothing.
Fails fault(SystemCall call, int error, int count = 1, int after = 0) {
    return [=]() -> Ends {
        return {new SystemFault(call, error, count, after), [](const SystemFault* fails) {
                    EXPECT_TRUE(fails->met());
                    delete fails;
                }};
    };
}

using Rows = std::vector<std::pair<std::vector<Fails>, std::string>>;

// What a command tells with each of these faults, and what it tells once that is over.
void check(
    const std::function<std::string()>& command, const std::string& working, const Rows& rows,
    const std::function<void()>& cleanUp = [] {}) {
    for (const auto& [faults, failing] : rows) {
        for (size_t i = 0; i < faults.size(); ++i) {
            {
                const Ends end = faults[i]();
                EXPECT_EQ(command(), failing) << "fault " << i;
            }
            cleanUp();
            EXPECT_EQ(command(), working) << "after fault " << i << " of " << failing;
            cleanUp();
        }
    }
}

// A command's result, and its response if it has one.
std::string outcome(const std::function<int(char**)>& command) {
    char* response = nullptr;
    const int result = command(&response);
    const std::string text = response == nullptr ? "" : std::string(", ") + response;
    free(response);
    return std::to_string(result) + text;
}

std::string preset() {
    const char* const text = "mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink";
    return outcome([=](char** response) { return sta_preset_testparameters(text, response); });
}

// Starts a session, and names it 7.
std::string start(int port) {
    hostplatform::device().session().setNextSessionId(7);
    return outcome([=](char** response) {
        return start_wfd_connection("", "192.168.49.2", port, 1, response);
    });
}

// Asks a trigger server for a connection, as a source does.
std::string askServer() {
    static std::atomic<int> asked;
    asked = 0;
    WFDTriggerTcpServer server;
    server.setCallback([](const char*, int port) { asked = port; });
    const int port = server.getServerPort();
    if (server.isRunning() && port > 0) {
        Connection source(port);
        if (source.connected()) source.send({"\0\2\0\7", 4});
        if (source.connected()) source.received();
    }
    return format("%s, asked %d", port > 0 ? "a port" : "no port", asked.load());
}

std::string surface() {
    if (getSurface() == nullptr) return "none";
    const auto layer = hostplatform::device().compositor().layers().at(0);
    return format("%u x %u", layer.width, layer.height);
}

std::string virtualDisplay() {
    const android::sp<android::IGraphicBufferProducer> producer =
        new android::IGraphicBufferProducer;
    mmSessionInfo info{720, 1280, 0, producer.get()};
    const int result = createVDS(&info);
    return format("%d, %zu", result, hostplatform::device().compositor().virtualDisplays().size());
}

TEST_F(FaultsTest, Sessions) {
    check([] { return start(7236); }, "0, 00000007",
          {{{fault(Fault::Allocation), fault(SystemCall::New, ENOMEM),
             fault(Fault::SessionCreation, -5)},
            "-1"}},
          [] { sta_reset_default(""); });
}

TEST_F(FaultsTest, Displays) {
    startSession(0);
    const auto cleanUp = [this] {
        deleteSurface();
        releaseVDS();
        EXPECT_EQ(compositor.openConnections(), 0);
    };
    check(surface, "1080 x 1920",
          {{{fault(Fault::CompositorConnection), fault(SystemCall::New, ENOMEM),
             fault(Fault::NoInternalDisplay), fault(Fault::LayerCreation),
             fault(Fault::LayerHandle), fault(Fault::LayerSurface)},
            "none"},
           // The size is guessed then.
           {{fault(Fault::DisplayStateQuery), fault(Fault::DisplayConfigQuery)}, "800 x 640"}},
          cleanUp);
    check([] { return std::to_string(setWFDSurface()); }, "0",
          {{{fault(Fault::SessionControl, -3)}, "-3"}}, cleanUp);
    check(virtualDisplay, "0, 1",
          {{{fault(Fault::NoInternalDisplay)}, "0, 0"},
           {{fault(Fault::DisplayStateQuery, -7)}, "-7, 0"},
           {{fault(Fault::DisplayConfigQuery, -7)}, "0, 1"},
           {{fault(Fault::VirtualDisplayCreation)}, "-1, 0"}},
          cleanUp);
}

TEST_F(FaultsTest, Workers) {
    device.session().setPeer(hostplatform::Peer::Silent);
    startSession(1);
    const auto stopped = [this] {  // audio is routed back, and the session ends
        mark();
        char objects[2][256] = {"STOPPED", "1"};
        miracastWfdStringArrayCallback("Any", 2, objects, nullptr);
        EXPECT_TRUE(waitWorkers());
        return format("%zu, %d", calls("audio").size(), !calls().empty());
    };
    check(stopped, "1, 1",
          {{{fault(Fault::ThreadCreation)}, "0, 0"},
           {{fault(SystemCall::New, ENOMEM)}, "0, 1"},
           {{fault(SystemCall::New, ENOMEM, 1, 1)}, "1, 0"},
           {{fault(Fault::AudioRouting, -38)}, "1, 1"}});
    const auto input = [this] {
        mark();
        WFD_uibc_event_t event = hostplatform::keyEvent('a', 0);
        const bool taken = injectEvent(&event, nullptr, nullptr, nullptr);
        setUpUibc();
        endUibcWorker();
        flushUIBCList();
        return format("%d, tools %zu", taken, calls("tool").size());
    };
    check(input, "1, tools 1",
          {{{fault(Fault::ThreadCreation)}, "1, tools 0"},
           {{fault(SystemCall::New, ENOMEM)}, "0, tools 0"}});
}

// This device is registered as "display", and finds a sink where there is one.
TEST_F(DiscoveryFaultsTest, Discovery) {
    Sink sink;
    sink.listen();
    const auto answers = [&] {
        answer("display", {service("display")});
        answer("_display._tcp", {service("A sink")});
        answer("A sink", {resolved(sink.port())});
        answer("peer.local.", {address("127.0.0.1")});
    };
    answers();
    const Fails refused = [] {
        FakeDnsSd::failNextCall(kDNSServiceErr_Unknown);
        return nullptr;
    };
    const auto failing = [&](const char* name) -> Fails {
        return [=] {
            answer(name, {failure()});
            return Ends(nullptr, [=](void*) { answers(); });
        };
    };
    // The discovery object, monitor, handler, trigger server, its thread, request, element.
    const auto object = [](int before) { return fault(SystemCall::New, ENOMEM, 1, before); };
    check(preset, "0, display",
          {{{fault(Fault::Allocation)}, "-1"},
           {{fault(SystemCall::SocketPair, EMFILE), fault(Fault::ThreadCreation), refused,
             failing("display"), object(1), object(2), object(5), object(6)},
            "0, "},
           {{fault(SystemCall::Malloc, ENOMEM), fault(SystemCall::Realloc, ENOMEM),
             fault(SystemCall::Poll, ENOMEM, 2), fault(SystemCall::Read, EIO), object(0), object(3),
             object(4)},
            "0, display"}},
          resetmDNSParams);
    const auto presetStopped = [this] {
        property_set("ctl.stop", "mdnsd");
        mark();
        const std::string text = preset();
        return text + format(", looked %zu times", slept(200));
    };
    check(presetStopped, "0, display, looked 1 times",
          {{{fault(Fault::PropertyService)}, "0, display, looked 25 times"}}, resetmDNSParams);

    const auto discover = [&] {
        resetmDNSParams();
        mark();
        std::string text = start(-100);
        const std::string call = journal().waitFor("session", "createWfd", marked())->text;
        if (sink.reached()) text += ", sent " + sink.received();
        text += call.substr(call.find("source") + 6);
        sta_reset_default("");
        return text;
    };
    const std::string local = "0, 00000007, sent 00021c44, local \"";
    const std::string peer = "\", peer \"127.0.0.1\" port 7236 -> 0";
    const char* const alone =
        "0, 00000007, local \"127.0.0.1\", peer \"192.168.49.2\" port 7236 -> 0";
    check(discover, local + "127.0.0.1" + peer,
          {{{fault(SystemCall::Socket, EMFILE)}, local + peer},
           {{fault(SystemCall::New, ENOMEM), refused, failing("_display._tcp"), failing("A sink"),
             failing("peer.local.")},
            alone}});
}

TEST_F(DiscoveryFaultsTest, TriggerServers) {
    check(askServer, "a port, asked 7",
          {{{fault(SystemCall::Socket, EMFILE), fault(SystemCall::Bind, EADDRINUSE),
             fault(SystemCall::GetSockName, ENOBUFS)},
            "no port, asked 0"},
           {{fault(SystemCall::Listen, EADDRINUSE), fault(Fault::ThreadCreation),
             fault(SystemCall::Accept, EMFILE), fault(SystemCall::Read, ECONNRESET)},
            "a port, asked 0"}});
}

}  // namespace
