// The soak test's books: what the journal says that has happened, and what there must be of
// threads, descriptors, heap and DNS-SD requests after that.
//
// Threads. The counts and ports() are for any thread; the rest is for the command thread.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Journal.h"

enum class Event {
    MonitorStarted,  // stays with its thread and two descriptors until the process ends
    RescanLost,      // a monitor keeps what it has not been asked to remove
    ServerMade,
    ServerWithoutThread,
    ServerEnded,
    Triggered,
    CommandRead,  // by a trigger server
    ClientMade,
    NoClient,
    SessionAsked,
    SessionMade,
    InputTaken,  // out of the queue
    QueueFlushed,
    InputShown,  // by a shell tool, if the shell could be started
    Tool,
    Allocated,
    Refused,  // an allocation
};
constexpr size_t kEventCount = 17;

class SoakAccount {
 public:
    // Observes the journal from now on. To be made on the command thread.
    SoakAccount();
    ~SoakAccount();
    SoakAccount(const SoakAccount&) = delete;
    SoakAccount& operator=(const SoakAccount&) = delete;

    long count(Event event) const { return mCounts.at(static_cast<size_t>(event)); }
    // Of the command thread alone.
    long ofCommands(Event event) const { return mOfCommands.at(static_cast<size_t>(event)); }
    // The status of the command thread's newest createWfdSession since the last call.
    std::optional<int> takeCreateStatus();
    // On which trigger servers have listened, ended ones among them.
    std::vector<int> ports() const;

    // What is in use from now on is the ground that later uses are compared with. To be called when
    // nothing happens.
    void setGround();
    // Learns what a session, a discovery object and a trigger server leave on the heap for good.
    // `act` makes each happen `count` times and waits until nothing happens any more.
    void learnSession(int count, const std::function<void()>& act);
    void learnMonitor(int count, const std::function<void()>& act);
    void learnServer(int count, const std::function<void()>& act);

    struct Figure {
        const char* name;
        long expected;
        long found;
        long allowedAbove;
        long allowedBelow;
        bool holds() const;
    };
    // What one session, discovery object and trigger server leaves, as learnt.
    std::array<long, 3> learnt() const { return {mPerClient, mPerMonitor, mPerServer}; }
    // What there must be and what there is, when nothing happens and no request is left.
    std::vector<Figure> figures() const;
    Figure threads() const;

 private:
    void note(const hostplatform::JournalEntry& entry);
    void noteLog(const hostplatform::JournalEntry& entry);
    void add(Event event, const hostplatform::JournalEntry& entry);
    long servers() const;
    long retained() const;
    long learn(int count, const std::function<void()>& act);

    const pid_t mCommandThread;
    std::array<std::atomic<long>, kEventCount> mCounts{};
    std::array<std::atomic<long>, kEventCount> mOfCommands{};
    mutable std::mutex mMutex;  // guards the two below
    std::vector<int> mPorts;
    std::optional<int> mCreateStatus;

    long mThreads = 0;
    long mDescriptors = 0;
    long mHeap = 0;
    long mRetained = 0;
    long mClients = 0;
    long mMonitors = 0;
    long mServers = 0;
    long mServersEnded = 0;
    long mPerClient = 0;
    long mPerMonitor = 0;
    long mPerServer = 0;
};
