// The commands of the soak test, as an agent gives them. Everything on the command thread.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "SoakWorld.h"

class SoakAccount;

// What does not hold.
class Violation : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};
// Throws one unless the condition is true.
void require(bool condition, const char* pattern, ...) __attribute__((__format__(printf, 2, 3)));

class SoakCommands {
 public:
    struct Counts {
        long commands = 0;    // of the mixture
        long responses = 0;   // texts
        long takenBack = 0;   // texts of starts that failed
        long sessions = 0;    // started, by result
        long timedOut = 0;    // sessions made, but not up in time
        long shellCalls = 0;  // by dev_exec_action
    };

    SoakCommands(uint64_t seed, SoakFaults& faults, SoakAccount& account);
    const Counts& counts() const { return mCounts; }

    // One command of the mixture, with a check of what holds whatever fails. `progress` of the run,
    // 0 to 1, bounds what commands leave behind for the life of the process.
    void give(double progress);

    // The ports on which sinks may have been triggered since the last call.
    std::set<int> takeTriggered() { return std::exchange(mTriggered, {}); }

    // These must work.
    //
    // Registers this device as "p-sink" or "source", as which it must get that name, or ends that
    // ("").
    void registerAs(const char* type, const std::string& name);
    // Starts a session by start_wfd_connection or connect_go_start_wfd; its identifier.
    using Start = int (*)(const char*, const char*, int, int, char**);
    std::string startBy(Start function, int port, int peerType);

 private:
    void reset();
    void preset();
    void start();
    void sendFrame();
    void execAction();
    void generateEvent();
    std::string mutated(std::string text);
    void giveText(const std::string& text, int (*function)(const char*),
                  std::initializer_list<int> results);
    bool mayDiscover() const;
    void noteTriggered();

    Random mRandom;
    SoakFaults& mFaults;
    SoakAccount& mAccount;
    Counts mCounts;
    double mProgress = 0;
    bool mObject = false;  // there may be a discovery object
    std::set<int> mTriggered;
};
