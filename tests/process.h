// What tests wait for, and count, in their own process.
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

// Polls a condition of another thread, for at most a minute. Whether it came about.
template <typename Condition>
bool waitUntil(const Condition& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));  // between two looks
    }
    return true;
}
inline bool waitUntil(const std::atomic<bool>& flag) {
    return waitUntil([&] { return flag.load(); });
}

// Gives other threads time to overtake this one, or to begin to wait.
inline void yieldToOthers() {
    for (int i = 0; i < 10; ++i) std::this_thread::yield();
}

// How many threads this process has, and how many descriptors, of which one is open for the answer.
inline long entriesOf(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}
inline long threadCount() { return entriesOf("/proc/self/task"); }
inline long descriptorCount() { return entriesOf("/proc/self/fd"); }
