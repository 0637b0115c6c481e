#include "host/Journal.h"

#include <unistd.h>

#include <algorithm>

#include "host/text_format.h"

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

void Journal::add(const char* component, std::string text) {
    JournalEntry entry{0, std::chrono::system_clock::now(), gettid(), component, std::move(text)};
    const Lock lock(mMutex);
    entry.sequence = mNext++;
    if (mObserver) mObserver(entry);
    mEntries.push_back(std::move(entry));
    if (mEntries.size() > mCapacity) mEntries.pop_front();
    mAdded.notify_all();
}

uint64_t Journal::mark() const {
    const Lock lock(mMutex);
    return mNext;
}

Journal::Position Journal::position(uint64_t from) const {
    const uint64_t gone = mNext - mEntries.size();
    return mEntries.begin() + static_cast<std::ptrdiff_t>(std::clamp(from, gone, mNext) - gone);
}

std::vector<JournalEntry> Journal::entries(uint64_t from) const {
    const Lock lock(mMutex);
    return {position(from), mEntries.end()};
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
    const Lock lock(mMutex);
    return static_cast<std::size_t>(
        std::count_if(position(from), mEntries.end(),
                      [&](const JournalEntry& entry) { return matches(entry, component, part); }));
}

std::optional<JournalEntry> Journal::waitFor(const std::string& component, const std::string& part,
                                             uint64_t from,
                                             std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    Lock lock(mMutex);
    do {
        for (auto entry = position(from); entry != mEntries.end(); ++entry) {
            if (matches(*entry, component, part)) return *entry;
        }
        from = std::max(from, mNext);
    } while (mAdded.wait_until(lock, deadline, [&]() REQUIRES(mMutex) { return mNext > from; }));
    return std::nullopt;
}

bool Journal::waitQuiet(std::chrono::milliseconds quiet, std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    Lock lock(mMutex);
    while (std::chrono::steady_clock::now() < deadline) {
        const auto added = [this, from = mNext]() REQUIRES(mMutex) { return mNext > from; };
        if (!mAdded.wait_for(lock, quiet, added)) return true;
    }
    return false;
}

void Journal::setObserver(std::function<void(const JournalEntry&)> observer) {
    const Lock lock(mMutex);
    mObserver = std::move(observer);
}

void Journal::setCapacity(std::size_t entries) {
    const Lock lock(mMutex);
    mCapacity = entries;
    while (mEntries.size() > mCapacity) mEntries.pop_front();
}

}  // namespace hostplatform
