#include "SoakAccount.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>

#include "ChannelTest.h"
#include "Compositor.h"
#include "FakeDnsSd.h"
#include "HeapUse.h"
#include "SessionService.h"

using hostplatform::Journal;
using hostplatform::JournalEntry;

namespace {

constexpr size_t kMostPorts = 8192;  // reserved: the books themselves are not to use more heap
constexpr size_t kJournalCapacity = 20'000;

struct LogLine {
    const char* part;
    Event event;
};
constexpr LogLine kLogLines[] = {
    {"MDnsSdChannel starting to monitor", Event::MonitorStarted},
    {"Error in asking for a rescan", Event::RescanLost},
    {": bind ok ", Event::ServerMade},
    {": no trigger server", Event::ServerWithoutThread},
    {": srv: accept error", Event::ServerEnded},
    {": Failed to read command", Event::ServerEnded},
    {": being triggered ", Event::Triggered},
    {": Request connection to ", Event::CommandRead},
    {"Process UIBC event", Event::InputTaken},
    {": Flushing UIBC event list", Event::QueueFlushed},
    {"UIBC[Src]KEY DOWN", Event::InputShown},
    {"UIBC[Src]TOUCH_DN", Event::InputShown},
    {"UIBC[Src]TOUCH_MOVE", Event::InputShown},
};

// As the kernel counts them: a listing of /proc/self/task misses some while others end.
long threadCount() {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != "Threads:") {
    }
    long count = 0;
    status >> count;
    return count;
}

}  // namespace

SoakAccount::SoakAccount() : mCommandThread(gettid()) {
    mPorts.reserve(kMostPorts);
    Journal& journal = Journal::instance();
    journal.setCapacity(kJournalCapacity);
    // The list of entries keeps what it needed at most: let it have needed that before.
    for (size_t i = 0; i < 3 * kJournalCapacity; ++i) journal.add("soak", "");
    journal.setObserver([this](const JournalEntry& entry) { note(entry); });
}

SoakAccount::~SoakAccount() { Journal::instance().setObserver({}); }

void SoakAccount::add(Event event, const JournalEntry& entry) {
    ++mCounts.at(static_cast<size_t>(event));
    if (entry.thread == mCommandThread) ++mOfCommands.at(static_cast<size_t>(event));
}

void SoakAccount::note(const JournalEntry& entry) {
    const std::string& text = entry.text;
    if (entry.component == "log") {
        noteLog(entry);
    } else if (entry.component == "tool") {
        add(Event::Tool, entry);
    } else if (entry.component == "memory") {
        const std::string_view end = " failed";
        const bool failed = text.size() > end.size() &&
                            text.compare(text.size() - end.size(), end.size(), end) == 0;
        add(failed ? Event::Refused : Event::Allocated, entry);
    } else if (entry.component == "session") {
        if (text.rfind("client ", 0) == 0) add(Event::ClientMade, entry);
        if (text == "no client") add(Event::NoClient, entry);
        if (text.rfind("createWfdSession ", 0) != 0) return;
        const int status = std::stoi(text.substr(text.rfind("-> ") + 3));
        add(Event::SessionAsked, entry);
        if (status == 0) add(Event::SessionMade, entry);
        if (entry.thread != mCommandThread) return;
        const std::lock_guard lock(mMutex);
        mCreateStatus = status;
    }
}

void SoakAccount::noteLog(const JournalEntry& entry) {
    for (const LogLine& line : kLogLines) {
        if (entry.text.find(line.part) != std::string::npos) {
            add(line.event, entry);
            return;
        }
    }
    const size_t port = entry.text.find("TCP Server port Num = ");
    if (port == std::string::npos) return;
    const std::lock_guard lock(mMutex);
    if (mPorts.size() < kMostPorts) mPorts.push_back(std::stoi(entry.text.substr(port + 22)));
}

std::optional<int> SoakAccount::takeCreateStatus() {
    const std::lock_guard lock(mMutex);
    return std::exchange(mCreateStatus, std::nullopt);
}

std::vector<int> SoakAccount::ports() const {
    const std::lock_guard lock(mMutex);
    return mPorts;
}

// Of the trigger servers, ended ones among them.
long SoakAccount::servers() const {
    return count(Event::ServerMade) - count(Event::ServerWithoutThread);
}

// What sessions that were never stopped keep, and runtime commands that the device remembers, one
// block each.
long SoakAccount::retained() const {
    long blocks = hostplatform::Compositor::instance().liveSurfaces();
    for (const hostplatform::SessionState& session : hostplatform::allSessions()) {
        if (session.producer != nullptr) ++blocks;
        if (!session.runtimeCommands.empty()) ++blocks;
    }
    return blocks;
}

void SoakAccount::setGround() {
    mRetained = retained();
    mClients = hostplatform::clientCount();
    mMonitors = count(Event::MonitorStarted);
    mServers = servers();
    mServersEnded = count(Event::ServerEnded);
    mThreads = threadCount() - mMonitors - mServers + count(Event::ServerEnded);
    mDescriptors = static_cast<long>(openDescriptors().size()) - 2 * mMonitors - mServers +
                   count(Event::ServerEnded);
    Journal::instance().setCapacity(0);
    mHeap = heapUse();
    Journal::instance().setCapacity(kJournalCapacity);
}

// Rounded: a thread that has ended may leave a block of its own to the next one.
long SoakAccount::learn(int count, const std::function<void()>& act) {
    setGround();
    act();
    const long retainedBefore = mRetained;
    const long before = mHeap;
    setGround();
    const long used = mHeap - before - (kHeapUseInBlocks ? mRetained - retainedBefore : 0);
    return std::lround(static_cast<double>(used) / count);
}

void SoakAccount::learnSession(int count, const std::function<void()>& act) {
    mPerClient = learn(count, act);
}
void SoakAccount::learnMonitor(int count, const std::function<void()>& act) {
    mPerMonitor = learn(count, act);
}
void SoakAccount::learnServer(int count, const std::function<void()>& act) {
    mPerServer = learn(count, act) - mPerMonitor;
}

bool SoakAccount::Figure::holds() const {
    return found <= expected + allowedAbove && found >= expected - allowedBelow;
}

SoakAccount::Figure SoakAccount::threads() const {
    return {"threads",
            mThreads + count(Event::MonitorStarted) + servers() - count(Event::ServerEnded),
            threadCount(), 0, 0};
}

std::vector<SoakAccount::Figure> SoakAccount::figures() const {
    std::vector<Figure> figures{threads()};
    const long monitors = count(Event::MonitorStarted);
    figures.push_back({"descriptors",
                       mDescriptors + 2 * monitors + servers() - count(Event::ServerEnded),
                       static_cast<long>(openDescriptors().size()), 0, 0});
    figures.push_back(
        {"DNS-SD requests", 0, static_cast<long>(FakeDnsSd::instance().liveCount()), 0, 0});

    const long clients = hostplatform::clientCount() - mClients;
    long predicted = mHeap + clients * mPerClient + (monitors - mMonitors) * mPerMonitor +
                     (servers() - mServers) * mPerServer;
    // Blocks: a server's thread has two, which go with it. Threads that have ended leave up to
    // one for each of the about 20 stacks that the C library keeps. A request of a monitor that was
    // not asked to remove it has two.
    long allowed = 40 + 2 * count(Event::RescanLost);
    if (kHeapUseInBlocks) {
        predicted += retained() - mRetained - 2 * (count(Event::ServerEnded) - mServersEnded);
    } else {
        allowed = 65'536 + 16 * (clients + retained()) + 256 * count(Event::RescanLost);
    }
    Journal::instance().setCapacity(0);
    const long found = heapUse();
    Journal::instance().setCapacity(kJournalCapacity);
    figures.push_back({kHeapUseInBlocks ? "heap blocks" : "heap bytes", predicted, found, allowed,
                       kHeapUseInBlocks ? 40 : allowed});
    return figures;
}
