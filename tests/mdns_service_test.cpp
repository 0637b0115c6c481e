// Starting and stopping the platform's mDNS daemon, on a property service that a test scripts.
#include <gtest/gtest.h>

#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "ChannelTest.h"
#include "Clock.h"
#include "cutils/properties.h"

using hostplatform::Journal;

namespace {

// The states that "init.svc.mdnsd" shows one after the other; the last one stays.
std::mutex statesMutex;
std::vector<std::string> states;

void setStates(std::vector<std::string> values) {
    const std::lock_guard lock(statesMutex);
    states = std::move(values);
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    const std::lock_guard lock(statesMutex);
    std::string state = states.empty() ? "" : states.front();
    if (states.size() > 1) states.erase(states.begin());
    Journal::instance().add("property", std::string(key) + " is " + state);
    if (state.empty() && default_value != nullptr) state = default_value;
    memcpy(value, state.c_str(), state.size() + 1);
    return static_cast<int>(state.size());
}

int property_set(const char* key, const char* value) {
    Journal::instance().add("property", std::string(key) + " = " + value);
    return -1;  // the channel asks, and does not look whether it is heard
}

namespace {

TEST_F(ChannelTest, StartsAndStopsTheDaemon) {
    const std::vector<std::string> nearly(25, "restarting");
    const auto then = [](std::vector<std::string> values, const std::string& last) {
        values.push_back(last);
        return values;
    };
    const struct {
        const char* name;
        const char* word;
        std::vector<std::string> states;
        const char* answer;
        const char* request;  // what is set; null for nothing
        size_t reads;
        uint64_t sleptMs;
    } cases[] = {
        {"runs already",
         "start-service",
         {"running"},
         "402 Service already running",
         nullptr,
         1,
         0},
        {"starts at once",
         "start-service",
         {"", "running"},
         "200 Service Started",
         "ctl.start = mdnsd",
         2,
         200},
        {"is not quite running",
         "start-service",
         {"running ", "running2", "Running", "running"},
         "200 Service Started",
         "ctl.start = mdnsd",
         4,
         600},
        {"starts at the last moment", "start-service", then(nearly, "running"),
         "200 Service Started", "ctl.start = mdnsd", 26, 5000},
        {"does not start",
         "start-service",
         {"stopped"},
         "200 Service Started",
         "ctl.start = mdnsd",
         26,
         5000},
        {"unknown to init",
         "start-service",
         {""},
         "200 Service Started",
         "ctl.start = mdnsd",
         26,
         5000},
        {"stops at once",
         "stop-service",
         {"stopped"},
         "200 Service Stopped",
         "ctl.stop = mdnsd",
         1,
         200},
        {"stops later",
         "stop-service",
         {"running", "stopping", "stopped"},
         "200 Service Stopped",
         "ctl.stop = mdnsd",
         3,
         600},
        {"does not stop",
         "stop-service",
         {"running"},
         "200 Service Stopped",
         "ctl.stop = mdnsd",
         25,
         5000},
        {"unknown to init",
         "stop-service",
         {""},
         "200 Service Stopped",
         "ctl.stop = mdnsd",
         25,
         5000},
    };
    hostplatform::setTimeScale(1000);
    for (const auto& given : cases) {
        SCOPED_TRACE(std::string(given.word) + ": " + given.name);
        mark();
        setStates(given.states);
        const uint64_t before = hostplatform::deviceMilliseconds();
        // What else is in the command does not matter.
        EXPECT_EQ(answer({given.word, "x", "y"}), given.answer);
        EXPECT_GE(hostplatform::deviceMilliseconds() - before, given.sleptMs);
        EXPECT_EQ(count("property", "init.svc.mdnsd is "), given.reads);
        EXPECT_EQ(count("property", " = "), given.request == nullptr ? 0U : 1U);
        if (given.request != nullptr) {
            EXPECT_EQ(count("property", given.request), 1U);
        }
        EXPECT_EQ(
            count("log", "D/MDnsDS: Starting MDNSD") + count("log", "D/MDnsDS: Stopping MDNSD"),
            given.request == nullptr ? 0U : 1U);
    }
    hostplatform::setTimeScale(1);
}

TEST_F(ChannelTest, DoesNotStopTheDaemonUnderARequest) {
    setStates({"running"});
    browse(1);
    EXPECT_EQ(answer({"stop-service"}), "403 Service still in use");
    EXPECT_EQ(count("property", ""), 0U);
    EXPECT_EQ(stop(1), "200 discover stopped");
    EXPECT_EQ(waitRescanned(), 1);
    setStates({"stopped"});
    EXPECT_EQ(answer({"stop-service"}), "200 Service Stopped");
}

}  // namespace
