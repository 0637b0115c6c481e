// A row of the benchmarks: the library beside a yardstick, the least that does the same.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "host/SimulatedDevice.h"

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

template <typename Action>
double timed(Action action) {
    const auto begin = Clock::now();
    action();
    return secondsSince(begin);
}

inline double lowerQuartile(std::vector<double> values) {
    const auto quarter = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 4);
    std::nth_element(values.begin(), quarter, values.end());
    return *quarter;
}

// Measures both in turns, so that what else the machine does meets both: each returns the seconds
// of `items` things that it did. Adds to the row the lower quartile of either for one thing, in
// seconds, their ratio and the ratio that is aimed at. Log lines are formatted and dropped.
template <typename Ours, typename Yardstick>
void compare(benchmark::State& state, int items, double aim, Ours ours, Yardstick yardstick) {
    hostplatform::device().log().setDropped(true);
    hostplatform::device().journal().setCapacity(0);
    std::vector<double> oursTaken;
    std::vector<double> yardstickTaken;
    for (bool first = true; state.KeepRunning(); first = !first) {
        if (first) oursTaken.push_back(ours());
        yardstickTaken.push_back(yardstick());
        if (!first) oursTaken.push_back(ours());
        state.SetIterationTime(oursTaken.back());
    }
    if (oursTaken.empty()) return;  // the row has failed before
    const double oursOne = lowerQuartile(oursTaken) / items;
    const double yardstickOne = lowerQuartile(yardstickTaken) / items;
    state.counters["ours"] = oursOne;
    state.counters["yardstick"] = yardstickOne;
    state.counters["ratio"] = oursOne / yardstickOne;
    state.counters["aim"] = aim;
}
