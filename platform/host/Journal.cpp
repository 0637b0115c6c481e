#include "Journal.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>

#include "TextFormat.h"

namespace hostplatform {

namespace {

bool matches(const JournalEntry& entry, const std::string& component, const std::string& part) {
    return entry.component == component && entry.text.find(part) != std::string::npos;
}

}  // namespace

std::string toString(const JournalEntry& entry) {
    const auto microseconds =
        std::chrono::duration_cast<std::chrono::microseconds>(entry.time.time_since_epoch());
    std::string line = timeText(entry.time) +
                       format("%03d %5d %-10s ", static_cast<int>(microseconds.count() % 1000),
                              static_cast<int>(entry.thread), entry.component.c_str());
    for (const char c : entry.text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            line += "\\n";
        } else if (byte < 0x20 || byte == 0x7f) {
            line += format("\\x%02x", byte);
        } else {
            line += c;
        }
    }
    return line;
}

Journal& Journal::instance() {
    static auto* const journal = new Journal;
    return *journal;
}

void Journal::add(const char* component, std::string text) {
    JournalEntry entry;
    entry.time = std::chrono::system_clock::now();
    entry.thread = gettid();
    entry.component = component;
    entry.text = std::move(text);

    const std::lock_guard lock(mMutex);
    entry.sequence = mNext++;
    if (mObserver) mObserver(entry);
    mEntries.push_back(std::move(entry));
    if (mEntries.size() > mCapacity) mEntries.pop_front();
    mAdded.notify_all();
}

void Journal::addFormatted(const char* component, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatArguments(format, arguments);
    va_end(arguments);
    add(component, std::move(text));
}

uint64_t Journal::mark() const {
    const std::lock_guard lock(mMutex);
    return mNext;
}

std::vector<JournalEntry> Journal::entries(uint64_t from) const {
    const std::lock_guard lock(mMutex);
    const auto first =
        std::partition_point(mEntries.begin(), mEntries.end(),
                             [from](const JournalEntry& entry) { return entry.sequence < from; });
    return {first, mEntries.end()};
}

std::vector<std::string> Journal::texts(const std::string& component, uint64_t from) const {
    std::vector<std::string> found;
    for (JournalEntry& entry : entries(from)) {
        if (entry.component == component) found.push_back(std::move(entry.text));
    }
    return found;
}

std::size_t Journal::count(const std::string& component, const std::string& part,
                           uint64_t from) const {
    const std::vector<JournalEntry> all = entries(from);
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const auto& entry) {
        return matches(entry, component, part);
    }));
}

std::optional<JournalEntry> Journal::waitFor(const std::string& component, const std::string& part,
                                             uint64_t from,
                                             std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(mMutex);
    uint64_t next = from;
    while (true) {
        for (auto entry =
                 std::partition_point(mEntries.begin(), mEntries.end(),
                                      [next](const JournalEntry& e) { return e.sequence < next; });
             entry != mEntries.end(); ++entry) {
            if (matches(*entry, component, part)) return *entry;
        }
        next = std::max(from, mNext);
        if (!mAdded.wait_until(lock, deadline, [&] { return mNext > next; })) return std::nullopt;
    }
}

bool Journal::waitQuiet(std::chrono::milliseconds quiet, std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(mMutex);
    while (std::chrono::steady_clock::now() < deadline) {
        const uint64_t seen = mNext;
        if (!mAdded.wait_for(lock, quiet, [&] { return mNext > seen; })) return true;
    }
    return false;
}

void Journal::setObserver(std::function<void(const JournalEntry&)> observer) {
    const std::lock_guard lock(mMutex);
    mObserver = std::move(observer);
}

void Journal::setCapacity(std::size_t entries) {
    const std::lock_guard lock(mMutex);
    mCapacity = entries;
    while (mEntries.size() > mCapacity) mEntries.pop_front();
}

}  // namespace hostplatform
