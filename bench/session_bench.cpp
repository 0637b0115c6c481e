// What the session client brings on its own threads: events and user input.
#include <cstring>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "android/log.h"
#include "compare.h"
#include "session_events.h"
#include "uibc.h"

namespace {

struct Event {
    const char* name;
    const char* reaction;  // what is logged after the texts, if anything
    int argument;
    int count;
    char objects[3][256];
};

// Those that the handler answers itself, and not on a thread that it starts.
Event events[] = {
    {"SessionState", nullptr, 0, 3, {"NEGOTIATED", "192.168.49.2", "10000001"}},
    {"SessionState", nullptr, 0, 3, {"ESTABLISHED", "192.168.49.2", "10000001"}},
    {"StreamControlCompleted", "Enable UIBC for sessionID %d\n", 10000001, 2, {"10000001", "PLAY"}},
    {"MMEvent", "MMEvent num_objects = %d\n", 2, 2, {"MMStreamStopped", "0"}},
};

void handle(Event& event) {
    miracastWfdStringArrayCallback(event.name, event.count, event.objects, nullptr);
}

void logOnly(const Event& event) {
    const auto priority = ANDROID_LOG_ERROR;
    __android_log_print(priority, nullptr, "\nReceived WFD event %s\n", event.name);
    for (int i = 0; i < event.count; ++i) {
        __android_log_print(priority, nullptr, "%d. %s \n", i, event.objects[i]);
    }
    if (event.reaction == nullptr) return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    __android_log_print(priority, nullptr, event.reaction, event.argument);
#pragma GCC diagnostic pop
}

template <typename Callback>
void forEvents(size_t count, Callback callback) {
    for (size_t i = 0; i < count; ++i) callback(events[i % std::size(events)]);
}

template <typename Callback>
std::vector<std::string> logOf(Callback callback) {
    const uint64_t start = hostplatform::device().journal().mark();
    forEvents(std::size(events), callback);
    return hostplatform::device().journal().texts("log", start);
}

void sessionEvents(benchmark::State& state) {
    constexpr int kCount = 1000;
    hostplatform::device().log().writeTo(nullptr, nullptr);
    hostplatform::device().log().setDropped(false);
    hostplatform::device().journal().setCapacity(1000);
    if (logOf(handle) != logOf(logOnly)) state.SkipWithError("not the yardstick's log lines");
    compare(
        state, kCount, 1.25, [] { return timed([] { forEvents(kCount, handle); }); },
        [] { return timed([] { forEvents(kCount, logOnly); }); });
}
BENCHMARK(sessionEvents)->UseManualTime()->Unit(benchmark::kMicrosecond);

std::mutex bareLock;
std::list<uibcInfo> bareList;

void appendBare(const WFD_uibc_event_t& event) {
    uibcInfo info{event.type, {}};
    memcpy(info.params, event.params, sizeof info.params);
    const std::lock_guard lock(bareLock);
    bareList.push_back(info);
}

// Appends from four threads at once; with the time of starting them.
void inputEvents(benchmark::State& state) {
    static constexpr size_t kThreads = 4;
    static constexpr size_t kCount = 20'000;
    const auto measure = [&](std::list<uibcInfo>& list, auto append) {
        const double taken = timed([&] {
            std::vector<std::thread> threads;
            for (size_t i = 0; i < kThreads; ++i) {
                threads.emplace_back([append] {
                    WFD_uibc_event_t event{};
                    event.type = 1;
                    for (size_t input = 0; input < kCount / kThreads; ++input) append(event);
                });
            }
            for (std::thread& thread : threads) thread.join();
        });
        if (list.size() != kCount) state.SkipWithError("events were lost");
        list.clear();
        return taken;
    };
    compare(
        state, kCount, 1.25,
        [&] {
            return measure(*myList, [](WFD_uibc_event_t& event) {
                injectEvent(&event, nullptr, nullptr, nullptr);
            });
        },
        [&] { return measure(bareList, appendBare); });
}
BENCHMARK(inputEvents)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
