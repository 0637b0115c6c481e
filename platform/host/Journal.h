// What the simulated device was asked to do, and what it logged, as one list of entries.
//
// Every part of the simulated device writes here, so that a test sees in one order what the library
// made happen, and waits for what happens on another thread instead of sleeping. All functions are
// callable on any thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace hostplatform {

struct JournalEntry {
    uint64_t sequence = 0;  // 0, 1, 2, ... from the start of the process
    std::chrono::system_clock::time_point time;
    pid_t thread = 0;
    // "session" (calls on the session client), "report" (what it reports), "link" (between sessions
    // of two devices), "compositor", "audio", "binder", "property" (properties set, services
    // started and stopped), "tool" (shell tools), "memory" (allocations), "log" (log lines:
    // priority letter, '/', tag, ": ", text).
    // And of the agent: "capi" (its command lines and what it answers them).
    std::string component;
    std::string text;
};

// One line, without its end: time, thread, component and text, control characters escaped. The time
// is local and in microseconds, so that the journals of two devices on one machine can be merged.
std::string toString(const JournalEntry& entry);

class Journal {
 public:
    // The one journal of the simulated device; never destroyed.
    static Journal& instance();

    void add(const char* component, std::string text);
    void addFormatted(const char* component, const char* format, ...)
        __attribute__((__format__(printf, 3, 4)));

    // The sequence number that the next entry will get: the place from which to look or wait.
    uint64_t mark() const;

    // Entries from `from` on, all of them or those of one component.
    std::vector<JournalEntry> entries(uint64_t from = 0) const;
    std::vector<std::string> texts(const std::string& component, uint64_t from = 0) const;

    // Number of entries of `component` from `from` on whose text contains `part`.
    std::size_t count(const std::string& component, const std::string& part,
                      uint64_t from = 0) const;

    // Waits until an entry of `component` from `from` on contains `part`, at most `timeout` of real
    // time; no value when there was none.
    std::optional<JournalEntry> waitFor(
        const std::string& component, const std::string& part, uint64_t from = 0,
        std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;

    // Waits until nothing has been added for `quiet`, at most `timeout`; false on timeout.
    bool waitQuiet(std::chrono::milliseconds quiet, std::chrono::milliseconds timeout) const;

    // Calls `observer` with every further entry, under the journal's lock and in order; it must not
    // call the journal. An empty function ends that.
    void setObserver(std::function<void(const JournalEntry&)> observer);

    // Only this many newest entries are kept in memory (at first 200,000).
    void setCapacity(std::size_t entries);

 private:
    Journal() = default;

    mutable std::mutex mMutex;  // guards everything below
    mutable std::condition_variable mAdded;
    std::deque<JournalEntry> mEntries;
    uint64_t mNext = 0;
    std::size_t mCapacity = 200'000;
    std::function<void(const JournalEntry&)> mObserver;
};

}  // namespace hostplatform
