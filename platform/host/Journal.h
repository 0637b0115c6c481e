// The list of everything that the simulated device was asked to do or logged.
//
// Every part of the simulated device adds entries, so a test sees all effects of the library in one
// order, and waits for an entry of another thread instead of sleeping. Any thread may call.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/Mutex.h"

namespace hostplatform {

struct JournalEntry {
    uint64_t sequence = 0;  // 0, 1, 2, ... from the start of the process
    std::chrono::system_clock::time_point time;
    pid_t thread = 0;
    // "session" (calls of the session client), "report" (its reports), "link" (between the sessions
    // of two devices), "compositor", "audio", "binder", "property" (properties set, services
    // started and stopped), "tool" (shell tools), "memory" (allocations), "sleep" (while the clock
    // is manual), "log" (log lines: priority letter, '/', tag, ": ", text). The agent adds "capi"
    // (command lines and answers) and "script" (expectations of a script that were not met).
    std::string component;
    std::string text;
};

// Returns the entry as one line without its end: time, thread, component and text, control
// characters escaped. The time is local and in microseconds, so that the journals of two devices on
// one machine can be merged.
std::string toString(const JournalEntry& entry);

class Journal {
 public:
    Journal() = default;
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    void add(const char* component, std::string text);

    // Returns the sequence number of the next entry, to pass as `from` later.
    uint64_t mark() const;

    // Return the entries from `from` on, or the texts of those of one component.
    std::vector<JournalEntry> entries(uint64_t from = 0) const;
    std::vector<std::string> texts(const std::string& component, uint64_t from = 0) const;

    // Returns the number of entries of `component` from `from` on whose text contains `part`.
    std::size_t count(const std::string& component, const std::string& part,
                      uint64_t from = 0) const;

    // Waits for an entry of `component` from `from` on that contains `part`, at most `timeout` of
    // real time; returns no value on timeout.
    std::optional<JournalEntry> waitFor(
        const std::string& component, const std::string& part, uint64_t from = 0,
        std::chrono::milliseconds timeout = std::chrono::seconds(60)) const;

    // Waits until no entry has been added for `quiet`, at most `timeout`; returns false on timeout.
    bool waitQuiet(std::chrono::milliseconds quiet, std::chrono::milliseconds timeout) const;

    // Calls `observer` with every further entry, in order and with the journal's lock held: it must
    // not call the journal. An empty function removes the observer.
    void setObserver(std::function<void(const JournalEntry&)> observer);

    // Sets how many of the newest entries are kept in memory (initially 200,000).
    void setCapacity(std::size_t entries);

 private:
    using Position = std::deque<JournalEntry>::const_iterator;
    Position position(uint64_t from) const REQUIRES(mMutex);

    mutable Mutex mMutex;
    mutable std::condition_variable mAdded;
    std::deque<JournalEntry> mEntries GUARDED_BY(mMutex);
    uint64_t mNext GUARDED_BY(mMutex) = 0;
    std::size_t mCapacity GUARDED_BY(mMutex) = 200'000;
    std::function<void(const JournalEntry&)> mObserver GUARDED_BY(mMutex);
};

}  // namespace hostplatform
