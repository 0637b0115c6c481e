// What many outstanding requests cost while nothing happens.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "ChannelTest.h"
#include "TextFormat.h"

using hostplatform::format;

namespace {

constexpr int kRequests = 1000;

struct Usage {
    long switches = -1;  // voluntary and involuntary: times that the thread was run
    long ticks = -1;     // CPU time, user and system, in clock ticks
};

Usage usageOf(pid_t thread) {
    Usage usage{0, 0};
    std::ifstream status(format("/proc/self/task/%d/status", thread));
    for (std::string key; status >> key;) {
        long value = 0;
        if (key != "voluntary_ctxt_switches:" && key != "nonvoluntary_ctxt_switches:") continue;
        status >> value;
        usage.switches += value;
    }
    std::ifstream stat(format("/proc/self/task/%d/stat", thread));
    std::string line;
    std::getline(stat, line);
    std::istringstream fields(line.substr(line.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) fields >> skipped;
    long user = 0;
    long system = 0;
    fields >> user >> system;
    usage.ticks = user + system;
    return usage;
}

TEST_F(ChannelTest, OutstandingRequestsCostNothing) {
    if (!allowDescriptors(2 * kRequests + 100)) GTEST_SKIP() << "the limit of open files";
    const char* const seconds = getenv("MDNS_STRESS_SECONDS");
    const std::chrono::seconds period(seconds == nullptr ? 1 : 10);

    for (int id = 0; id < kRequests; ++id) {
        mark();
        browse(id);
    }
    // On its way there through the requests it is quiet, too.
    Lines lines;
    do {
        ASSERT_TRUE(journal().waitQuiet(std::chrono::milliseconds(300), std::chrono::seconds(60)));
        lines = trace(monitorThread());
    } while (lines.empty() ||
             lines.back() != format("D/MDnsDS: Going to poll with pollCount %d", kRequests + 1));
    mark();
    const Usage before = usageOf(monitorThread());
    ASSERT_GT(before.switches, 0);
    std::this_thread::sleep_for(period);  // this is what is measured
    const Usage after = usageOf(monitorThread());
    EXPECT_EQ(after.switches - before.switches, 0);
    EXPECT_EQ(after.ticks - before.ticks, 0);
    EXPECT_EQ(count("", ""), 0U);
    std::cout << kRequests << " requests for " << period.count()
              << " s: " << after.switches - before.switches << " context switches, "
              << after.ticks - before.ticks << " ticks of CPU time\n";

    // They were all polled, and the measure does see a wake-up.
    EXPECT_TRUE(library().answer(library().newest(), {}));
    EXPECT_TRUE(journal().waitFor("log", format("Going to poll with pollCount %d", kRequests + 1),
                                  marked()));
    ASSERT_TRUE(journal().waitQuiet(std::chrono::milliseconds(100), std::chrono::seconds(20)));
    EXPECT_GT(usageOf(monitorThread()).switches, after.switches);
}

}  // namespace
