#include "ChannelTest.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>

using hostplatform::Journal;
using hostplatform::JournalEntry;

void Latch::open() {
    const std::lock_guard lock(mMutex);
    mOpen = true;
    mOpened.notify_all();
}

bool Latch::wait(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mMutex);
    return mOpened.wait_for(lock, timeout, [this] { return mOpen; });
}

std::set<int> openDescriptors() {
    std::set<int> descriptors;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        descriptors.insert(stoi(entry.path().filename().string()));
    }
    // The listing had one of its own.
    for (auto it = descriptors.begin(); it != descriptors.end();) {
        it = fcntl(*it, F_GETFD) == -1 ? descriptors.erase(it) : std::next(it);
    }
    return descriptors;
}

bool allowDescriptors(unsigned count) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
    if (limit.rlim_cur >= count) return true;
    if (limit.rlim_max < count) return false;
    limit.rlim_cur = count;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

int waitRescanned(uint64_t from, pid_t monitorThread) {
    const Journal& journal = Journal::instance();
    const size_t wanted = journal.count("log", "triggering rescan", from);
    while (true) {
        const uint64_t end = journal.mark();
        size_t made = 0;
        for (const JournalEntry& entry : journal.entries(from)) {
            if (entry.thread != monitorThread) continue;
            if (entry.text == "D/MDnsDS: MDnsSdChannel::Monitor got 1") ++made;
            int entries = -1;
            if (made >= wanted &&
                sscanf(entry.text.c_str(), "D/MDnsDS: Going to poll with pollCount %d", &entries) ==
                    1) {
                return entries;
            }
        }
        if (!journal.waitFor("log", "Going to poll with pollCount", end)) return -1;
    }
}

ChannelTest::ChannelTest() : mStart(journal().mark()), mMark(mStart) {
    mChannel = std::make_unique<MDnsSdChannel>(mListener.get());
    const auto begun = journal().waitFor("log", "MDnsSdChannel starting to monitor", mMark);
    if (begun) mMonitorThread = begun->thread;
    EXPECT_NE(mMonitorThread, 0);
    EXPECT_EQ(waitRescanned(), 1);
    mark();
}

ChannelTest::~ChannelTest() {
    for (const std::string& id : mRequestIds) give(*mChannel, {"stop-discover", id});
    library().onStart(nullptr);
    library().onDeallocate(nullptr);
    EXPECT_EQ(library().takeViolations(), Lines{});
    EXPECT_EQ(library().liveCount(), 0U) << "references leaked";
    // The next test is to see nothing of this one's monitor.
    EXPECT_TRUE(journal().waitQuiet(std::chrono::milliseconds(50), std::chrono::seconds(20)));
}

int ChannelTest::command(const std::vector<std::string>& words) {
    if (words.size() > 1 && words[0].rfind("stop-", 0) != 0) {
        const std::lock_guard lock(mMutex);
        mRequestIds.insert(words[1]);
    }
    return give(*mChannel, words);
}

std::string ChannelTest::answer(const std::vector<std::string>& words) {
    const uint64_t before = journal().mark();
    EXPECT_EQ(command(words), 0);
    std::string answer;
    for (const JournalEntry& entry : journal().entries(before)) {
        if (entry.thread != gettid() || entry.text.rfind("sendMsg(", 0) != 0) continue;
        EXPECT_EQ(answer, "") << "answered twice";
        // "sendMsg(CODE, TEXT, 0)"
        answer = entry.text.substr(8, 3) + entry.text.substr(12, entry.text.size() - 16);
    }
    return answer;
}

DNSServiceRef ChannelTest::browse(int requestId) {
    EXPECT_EQ(answer({"discover", std::to_string(requestId), "_x._tcp"}),
              "200 Discover operation started");
    return library().newest();
}

std::string ChannelTest::stop(int requestId, const char* operation) {
    return answer({std::string("stop-") + operation, std::to_string(requestId)});
}

ChannelTest::Lines ChannelTest::trace(pid_t thread) const {
    static const std::set<std::string> components{"log", "listener", "dns-sd", "property"};
    Lines lines;
    for (const JournalEntry& entry : journal().entries(mMark)) {
        if (entry.thread != thread || components.count(entry.component) == 0) continue;
        lines.push_back(entry.text);
        const size_t pointer = entry.text.find(" ref 0x");
        if (pointer != std::string::npos)
            lines.back().replace(pointer, std::string::npos, " ref *");
    }
    return lines;
}

ChannelTest::Lines ChannelTest::resultTrace() const {
    const Lines lines = trace(mMonitorThread);
    const auto contains = [](const char* part) {
        return [=](const std::string& line) { return line.find(part) != std::string::npos; };
    };
    const auto before =
        std::find_if(lines.rbegin(), lines.rend(), contains("calling ProcessResults"));
    const auto begin = before.base();
    return {begin, std::find_if(begin, lines.end(), contains("controlSocket shows"))};
}

ChannelTest::Hold::Hold(ChannelTest& test) : mTest(test) {
    test.mListener->onResult(kHoldId, Form::Line, [this] {
        mHeld.open();
        EXPECT_TRUE(mReleased.wait());
    });
    EXPECT_TRUE(library().answer(test.browse(kHoldId), {}));
    EXPECT_TRUE(mHeld.wait());
}

ChannelTest::Hold::~Hold() {
    release();
    mTest.stop(kHoldId);  // which waits until the monitor has left the action
    mTest.mListener->onResult(kHoldId, Form::Line, {});
}
