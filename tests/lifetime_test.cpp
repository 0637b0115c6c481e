// The library where the process, its threads and the daemon end. Each scenario is a run of its own:
// lifetime_test LIBRARY SCENARIO
//
// The library is opened with dlopen. Threads wait for each other by entries of the journal's
// component "test"; the alarm ends a scenario that hangs. The library runs its shell tools with the
// system() that is defined below.
#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <thread>

#include "FakeDnsSd.h"
#include "host/SimulatedDevice.h"
#include "process.h"
#include "session_events.h"
#include "uibc.h"
#include "virtual_display.h"
#include "wfd_discovery.h"

namespace {

using hostplatform::device;
using hostplatform::Fault;
using std::string;

void* library = nullptr;
// What a scenario does after the library's exit handlers.
std::function<void()> atTheEnd = [] {};

hostplatform::Journal& journal() { return device().journal(); }
FakeDnsSd& dnsSd() { return FakeDnsSd::instance(); }

#define REQUIRE(condition) require(condition, #condition)
void require(bool condition, const char* text) {
    if (condition) return;
    fprintf(stderr, "not so: %s\n", text);
    _exit(1);
}

void happen(const char* what) { journal().add("test", what); }
void await(const string& what, const char* component = "test") {
    require(journal().waitFor(component, what, 0, std::chrono::seconds(50)).has_value(),
            what.c_str());
}

// The library's function or variable of that symbol.
template <typename T>
T& symbol(const char* name) {
    void* const address = dlsym(library, name);
    require(address != nullptr, name);
    return *reinterpret_cast<T*>(address);
}
#define LIBRARY(name) symbol<decltype(name)>(#name)

bool inject(char key) {
    WFD_uibc_event_t event = hostplatform::keyEvent(static_cast<uint16_t>(key), 0);
    constexpr const char* kName = "_Z11injectEventP16WFD_uibc_event_tPKvRKP8_jobjectS6_";
    return symbol<decltype(injectEvent)>(kName)(&event, nullptr, nullptr, nullptr);
}

void report(const char* name, const char* first, const char* second) {
    char objects[2][256] = {};
    memcpy(objects[0], first, strlen(first));
    memcpy(objects[1], second, strlen(second));
    constexpr const char* kName = "_Z30miracastWfdStringArrayCallbackPKciPA256_cRKP8_jobject";
    symbol<decltype(miracastWfdStringArrayCallback)>(kName)(name, 2, objects, nullptr);
}

void awaitThreads(long count) {
    while (threadCount() > count) std::this_thread::yield();
}

int discover(MDnsDiscoverCallback found) { return LIBRARY(mDnsDiscoverWfd)(WFD_R2_SOURCE, found); }
int resolve(const MDnsWfdServiceInfo* info, MDnsRegisterCallback resolved) {
    return LIBRARY(mDnsResolveWfd)(info, resolved);
}
void ignore(int, const MDnsWfdServiceInfo*) {}
// Answers a request before its start returns.
void answer(DNSServiceRef request, const string& name, int times = 1) {
    const FakeDnsSd::Result result{name, "", "", "peer.local.", 0, {}, "192.168.49.2"};
    while (times-- > 0) dnsSd().answer(request, result);
}

}  // namespace

// The scenarios, which main finds by name.
extern "C" {

// Starts the UIBC worker, which sleeps until "wake", and queues two events.
static void startInput() {
    device().clock().onSleep([](uint32_t) {
        happen("sleeping");
        await("wake");
    });
    LIBRARY(setUpUibc)();
    REQUIRE(inject('a') && inject('b'));
    await("sleeping");
}

void teardown_at_exit() {
    startInput();
    std::thread([] {
        report("any", "any", "TEARDOWN");
        happen("torn down");
    }).detach();
    await("Notify worker thread to exit", "log");
    atTheEnd = [] {
        inject('c');
        happen("wake");
        await("Exiting worker thread loop", "log");
        await("torn down");
        REQUIRE(journal().count("tool", "") == 0);
    };
}

void queue_at_exit() {
    // Called after the library's handler, which is registered when the worker starts.
    atexit([] {
        happen("wake");
        await("Exiting worker thread loop", "log");
    });
    startInput();
    atTheEnd = [] { REQUIRE(journal().count("tool", "") == 0); };
}

void hanging_tool_at_exit() {
    LIBRARY(setUpUibc)();
    REQUIRE(inject('h'));
    await("input keyevent 36", "tool");
}

void hanging_compositor_at_exit() {
    device().faults().hold(Fault::VirtualDisplayCreation);
    std::thread([] {
        mmSessionInfo info{720, 1280, 0, new android::IGraphicBufferProducer};
        symbol<decltype(createVDS)>("_Z9createVDSPv")(&info);
    }).detach();
    REQUIRE(device().faults().waitHeld(Fault::VirtualDisplayCreation));
}

void threads_after_dlclose() {
    device().clock().onSleep([](uint32_t milliseconds) {
        if (milliseconds == 2000) await("wake");
    });
    REQUIRE(LIBRARY(miracast_playback_thread_create)(const_cast<char*>("clip")) == 0);
    const pthread_t playback = LIBRARY(rtsp_playback_thread);
    REQUIRE(discover([](int, const MDnsWfdServiceInfo*) { happen("found"); }) == 200);
    await("am force-stop", "tool");
    dlclose(library);
    happen("wake");
    pthread_join(playback, nullptr);
    REQUIRE(journal().count("tool", "am start") == 1);
    answer(dnsSd().newest(), "peer");
    await("found");
}

void surface_of_the_next_session() {
    const auto layers = [] { return device().compositor().layers().size(); };
    device().session().setPeer(hostplatform::Peer::Silent);
    device().faults().hold(Fault::SessionStop);
    LIBRARY(wfd_device_type) = 1;
    LIBRARY(startWfdConnection)("", "192.168.49.2", 7236, 0, nullptr, nullptr);
    const long before = threadCount();
    report("any", "NEGOTIATING", "1");
    report("any", "STOPPED", "1");
    REQUIRE(device().faults().waitHeld(Fault::SessionStop));
    report("any", "NEGOTIATING", "2");
    device().faults().release(Fault::SessionStop);
    awaitThreads(before);
    REQUIRE(layers() == 1);
    report("any", "STOPPED", "2");
    LIBRARY(wfd_device_type) = 0;
    awaitThreads(before);
    REQUIRE(layers() == 0);
}

void order_of_routing() {
    const long before = threadCount();
    device().log().onMessage([](const string& line) {
        if (line == "Val = 1 \n") yieldToOthers();
    });
    constexpr size_t kReports = 100;
    for (size_t i = 0; i < kReports; ++i) report("AudioEvent", "AudioProxyOpened", "PAUSE");
    awaitThreads(before);
    const std::vector<string> calls = journal().texts("audio");
    REQUIRE(calls.size() == 2 * kReports);
    for (size_t i = 0; i < 2 * kReports; ++i)
        REQUIRE(calls[i].substr(17, 2) == (i % 2 == 0 ? "av" : "un"));
}

void stop_inside_a_result() {
    static const pid_t command = gettid();
    dnsSd().reportAll = true;
    dnsSd().onStart([](DNSServiceRef request, const string& name) {
        answer(request, "peer", name == "peer" ? 3 : 1);
    });
    device().log().onMessage([](const string& line) {
        if (line.find("stop-resolve 122111") == string::npos) return;
        if (gettid() == command) return happen("stopping");
        happen("in the result");
        await("stopping");
        yieldToOthers();
    });
    discover([](int, const MDnsWfdServiceInfo* info) { resolve(info, ignore); });
    await("in the result");
    LIBRARY(mDnsClearInstances)();
    REQUIRE(journal().count("log", "sendBroadcast 608") == 1);
}

void register_again() {
    for (int i = 1; i <= 50; ++i) {
        const string name = "source " + std::to_string(i) + ".";
        dnsSd().onStart([&](DNSServiceRef request, const string&) { answer(request, name); });
        LIBRARY(registerSource)();
        await("Succeeded to register source service: " + name, "log");
    }
}

// An address callback begins another resolution once the destructor waits for it; in the second
// scenario its start has begun before.
static void resolveAtTheEnd(bool inStart) {
    static const bool waitInStart = inStart;
    static int resolutions = 0;  // on the monitor thread
    dnsSd().onStart([](DNSServiceRef request, const string& name) {
        if (name != "peer" || ++resolutions == 1) return answer(request, "peer");
        happen("start");
        if (waitInStart) await("stop-getaddrinfo", "log");
    });
    discover([](int, const MDnsWfdServiceInfo* service) {
        resolve(service, [](int, const MDnsWfdServiceInfo* info) {
            happen("address");
            if (!waitInStart) await("stop-getaddrinfo", "log");
            REQUIRE(resolve(info, ignore) == -1);
        });
    });
    await(inStart ? "start" : "address");
    LIBRARY(mDnsClearInstances)();
    REQUIRE(dnsSd().liveCount() == 0);
}
void resolve_at_the_end() { resolveAtTheEnd(false); }
void resolve_during_the_end() { resolveAtTheEnd(true); }

void answers_of_two_threads() {
    device().log().onMessage([](const string& line) {
        // The other thread gives a command between this thread's answer and its result.
        if (line.find("sendMsg 501") == string::npos) return;
        answer(dnsSd().newest(), "peer");
        await("resolving");
    });
    const auto found = [](int, const MDnsWfdServiceInfo* info) {
        REQUIRE(resolve(info, ignore) == 200);
        happen("resolving");
    };
    REQUIRE(discover(found) == 200);
    REQUIRE(discover(found) == 501);
}

void daemon_goes() {
    REQUIRE(discover(ignore) == 200);
    dnsSd().connectionsClosed = true;
    answer(dnsSd().newest(), "peer");
    await("error from DNSServiceProcessResult", "log");
    REQUIRE(LIBRARY(mDnsRegisterWfdSource)("", 7236, ignore) == 501);
    LIBRARY(mDnsClearInstances)();
    sigset_t set;
    REQUIRE(pthread_sigmask(SIG_BLOCK, nullptr, &set) == 0 && sigismember(&set, SIGPIPE) == 0);
    REQUIRE(sigpending(&set) == 0 && sigismember(&set, SIGPIPE) == 0);
}

void few_descriptors() {
    const long left = 65 - descriptorCount();
    const rlimit limit{64, 64};
    REQUIRE(setrlimit(RLIMIT_NOFILE, &limit) == 0);
    char* response = nullptr;
    long presets = 0;
    while (journal().count("log", "creating the monitor's control socket - got 24") == 0) {
        constexpr const char* kSink = "mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink";
        REQUIRE(LIBRARY(sta_preset_testparameters)(kSink, &response) == 0);
        free(response);
        ++presets;
    }
    REQUIRE(presets > left / 3);  // the ends of the control socket, and the trigger server's port
    REQUIRE(LIBRARY(sta_reset_default)("") == 0);
    device().clock().onSleep([](uint32_t) {
        while (LIBRARY(g_wfd_session_id) == 0) std::this_thread::yield();
    });
    REQUIRE(LIBRARY(start_wfd_connection)("", "192.168.49.2", 7236, 1, &response) == 0);
    free(response);
}

}  // extern "C"

int system(const char* command) {
    journal().add("tool", command);
    if (strcmp(command, "input keyevent 36") == 0) await("the end");
    return 0;
}

int main(int argc, char** argv) {
    alarm(60);
    device().clock().setManual();
    device().properties().simulateMdns(true);
    atexit([] { atTheEnd(); });  // called after the library's handlers, which are registered later
    std::thread([] {}).join();   // with the first one a sanitizer starts its own
    library = dlopen(argc == 3 ? argv[1] : "", RTLD_NOW);
    auto* const scenario = reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, argv[2]));
    REQUIRE(scenario != nullptr);
    scenario();
}
