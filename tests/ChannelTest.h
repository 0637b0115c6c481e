// What the tests of the DNS-SD command channel share.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FakeDnsSd.h"
#include "Journal.h"
#include "JournalListener.h"
#include "MDnsSdChannel.h"

// Something that happens once.
class Latch {
 public:
    void open();
    bool isOpen() const { return wait(std::chrono::milliseconds(0)); }
    // False when it has not happened in time.
    bool wait(std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;

 private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mOpened;
    bool mOpen = false;
};

// Of this process.
std::set<int> openDescriptors();

// Lets this process have that many, from now on. False when it may not.
bool allowDescriptors(unsigned count);

// Waits until a channel's monitor has made every rescan asked for since `from`, when it was not
// there yet or had made all; how many entries it polls then. -1 if that does not come about.
int waitRescanned(uint64_t from, pid_t monitorThread);

// A channel on the fake library. At the end of a test everything that it started is stopped, and
// the library must have nothing to complain of and nothing left.
class ChannelTest : public testing::Test {
 protected:
    using Form = JournalListener::Form;
    using Lines = std::vector<std::string>;

    ChannelTest();
    ~ChannelTest() override;

    static FakeDnsSd& library() { return FakeDnsSd::instance(); }
    static hostplatform::Journal& journal() { return hostplatform::Journal::instance(); }

    // All commands of a test go through these, so that its end knows what to stop. On any thread.
    int command(const std::vector<std::string>& words);
    // The answer to a command: code, space and text.
    std::string answer(const std::vector<std::string>& words);
    // Starts a browse for the type "_x._tcp".
    DNSServiceRef browse(int requestId);
    std::string stop(int requestId, const char* operation = "discover");

    // Forgets what was journalled so far.
    void mark() { mMark = journal().mark(); }
    uint64_t marked() const { return mMark; }
    // What a thread has logged, called and been told since the mark, pointers masked.
    Lines trace(pid_t thread) const;
    // The same of the monitor thread from its latest result on, without the lines around it.
    Lines resultTrace() const;
    pid_t monitorThread() const { return mMonitorThread; }
    int waitRescanned() const { return ::waitRescanned(mStart, mMonitorThread); }
    size_t count(const char* component, const std::string& part) const {
        return journal().count(component, part, mMark);
    }

    // Keeps the monitor thread inside a result until it is released or this ends.
    class Hold {
     public:
        explicit Hold(ChannelTest& test);
        ~Hold();
        void release() { mReleased.open(); }

     private:
        ChannelTest& mTest;
        Latch mHeld;
        Latch mReleased;
    };

    std::unique_ptr<JournalListener> mListener = std::make_unique<JournalListener>();
    std::unique_ptr<MDnsSdChannel> mChannel;

 private:
    static constexpr int kHoldId = 900'000;

    const uint64_t mStart;  // where in the journal the test began
    uint64_t mMark;
    pid_t mMonitorThread = 0;
    std::mutex mMutex;  // guards everything below
    std::set<std::string> mRequestIds;
};
