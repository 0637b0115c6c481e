// What happens around the library in the soak test while the command thread gives its commands: an
// mDNS daemon's answers, sources that trigger this sink, the sink's user, reports of the session
// client, and faults of the device and of system calls, all at random.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FakeDnsSd.h"
#include "SystemFaults.h"

class SoakAccount;

class Random {
 public:
    explicit Random(uint64_t seed) : mEngine(seed) {}
    int below(int limit) { return static_cast<int>(mEngine() % static_cast<uint64_t>(limit)); }
    bool oneIn(int count) { return below(count) == 0; }
    template <typename T, size_t Size>
    const T& of(const T (&candidates)[Size]) {
        return candidates[below(static_cast<int>(Size))];
    }

 private:
    std::mt19937_64 mEngine;
};

// Faults, switched on and off at random; few of them at a time. On any thread.
class SoakFaults {
 public:
    explicit SoakFaults(uint64_t seed) : mRandom(seed) {}
    void change();
    void clear();
    // What has been switched on, how often, or, of system calls, has failed.
    std::vector<std::pair<const char*, int>> counts() const;

 private:
    void switchOn();

    mutable std::mutex mMutex;  // guards everything below
    Random mRandom;
    std::optional<ScopedSystemFault> mCalls[kSystemCallCount];
    int mOn = 0;
    std::vector<int> mDeviceFaults = std::vector<int>(64);
};

class SoakWorld {
 public:
    // A peer that is there as long as it is set: what requests for it are answered with.
    struct Peer {
        std::string name;     // of its service, and under which this device is registered
        std::string address;  // of its host
        int port = 0;
    };

    // Starts two threads; they rest until resume().
    SoakWorld(uint64_t seed, SoakFaults& faults, const SoakAccount& account);
    ~SoakWorld();
    SoakWorld(const SoakWorld&) = delete;
    SoakWorld& operator=(const SoakWorld&) = delete;

    // Until resume(): waits until nothing is under way here; requests are answered for `peer` only.
    void pause(Peer peer);
    void resume();

    // Inputs of the sink's user that the library took.
    long inputsAccepted() const { return mInputsAccepted; }

    // As a source does: true when the sink has dealt with it and closed the connection.
    static bool sendToSink(int port, const std::string& bytes);

 private:
    void onStart(DNSServiceRef ref, const std::string& name);
    FakeDnsSd::Result randomResult(Random& random) const;
    void run(uint64_t seed, int mostMilliseconds, void (SoakWorld::*something)(Random&));
    void answerOne(Random& random);
    void act(Random& random);

    SoakFaults& mFaults;
    const SoakAccount& mAccount;
    std::atomic<long> mInputsAccepted{0};

    std::mutex mMutex;  // guards everything below
    std::condition_variable mChanged;
    bool mPaused = true;
    bool mEnded = false;
    int mActing = 0;  // how many of the threads are doing something
    Peer mPeer;
    Random mRandom;  // of requests
    std::deque<DNSServiceRef> mRequests;
    std::thread mThreads[2];
};
