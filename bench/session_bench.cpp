// What the session client brings on its own threads: events and user input.
#include <chrono>
#include <cstring>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "Benchmarks.h"
#include "TextFormat.h"
#include "android/log.h"
#include "session_events.h"
#include "uibc.h"

namespace {

using benchmark::State;

constexpr int kEvents = 10'000;
constexpr int kThreads = 4;
constexpr int kInputs = 100'000;

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
void forEvents(int count, const Callback& callback) {
    for (int i = 0; i < count; ++i) callback(events[static_cast<size_t>(i) % std::size(events)]);
}

void handleEvents(State& state) {
    const int all = std::size(events);
    if (logOf([] { forEvents(all, handle); }) != logOf([] { forEvents(all, logOnly); })) {
        state.SkipWithError("not the same log lines as the yardstick");
    }
    while (state.KeepRunning()) forEvents(kEvents, handle);
}

void logEvents(State& state) {
    while (state.KeepRunning()) forEvents(kEvents, logOnly);
}

std::mutex bareLock;
std::list<uibcInfo> bareList;

bool appendBare(const WFD_uibc_event_t& event) {
    uibcInfo info{event.type, {}};
    memcpy(info.params, event.params, sizeof info.params);
    const std::lock_guard lock(bareLock);
    bareList.push_back(info);
    return true;
}

// Appends from all threads at once; the time of it, with that of starting the threads.
template <typename Append>
void measureInputs(State& state, std::list<uibcInfo>& list, Append append) {
    while (state.KeepRunning()) {
        const auto begin = std::chrono::steady_clock::now();
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([append] {
                WFD_uibc_event_t event{};
                event.type = 1;
                for (int input = 0; input < kInputs / kThreads; ++input) append(event);
            });
        }
        for (std::thread& thread : threads) thread.join();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(taken.count());
        if (list.size() != kInputs) state.SkipWithError("events were lost");
        list.clear();
    }
}

void queueInputs(State& state) {
    measureInputs(state, myList, [](WFD_uibc_event_t& event) {
        return injectEvent(&event, nullptr, nullptr, nullptr);
    });
}

void queueInputsBare(State& state) { measureInputs(state, bareList, appendBare); }

}  // namespace

void addSessionBenchmarks(Table& table) {
    benchmark::RegisterBenchmark("events/ours", handleEvents);
    benchmark::RegisterBenchmark("events/yardstick", logEvents);
    table.add(hostplatform::format("%d session events", kEvents), {"events/ours", "", ""},
              "the same log lines", {"events/yardstick", "", ""}, {Aim::Kind::Ratio, 1.5});

    benchmark::RegisterBenchmark("uibc/ours", queueInputs)->UseManualTime();
    benchmark::RegisterBenchmark("uibc/yardstick", queueInputsBare)->UseManualTime();
    table.add(hostplatform::format("%d input events, %d threads", kInputs, kThreads),
              {"uibc/ours", "", ""}, "std::list, std::mutex", {"uibc/yardstick", "", ""},
              {Aim::Kind::Ratio, 1.2});
}
