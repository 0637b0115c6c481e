// The simulated device itself, where the tests and people rely on more than the library's tests
// show.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Clock.h"
#include "Faults.h"
#include "Journal.h"
#include "LogFilter.h"
#include "LogSwitch.h"
#include "TextFormat.h"
#include "android/log.h"
#include "cutils/properties.h"
#include "osal/osal.h"

namespace {

using hostplatform::format;
using hostplatform::Journal;
using hostplatform::LogFilter;

TEST(LogFilterTest, FollowsTheTagList) {
    struct {
        const char* tags;
        int priority;
        const char* tag;
        bool shown;
    } const cases[] = {
        {nullptr, ANDROID_LOG_VERBOSE, "A", true},
        {"", ANDROID_LOG_VERBOSE, "", true},
        {"A:W", ANDROID_LOG_INFO, "A", false},
        {"A:W", ANDROID_LOG_WARN, "A", true},
        {"A:W", ANDROID_LOG_VERBOSE, "B", true},
        {"A:W *:S", ANDROID_LOG_FATAL, "B", false},
        {"*:e A", ANDROID_LOG_VERBOSE, "A", true},
        {"*:E,A:d", ANDROID_LOG_DEBUG, "A", true},
        {"*:E", ANDROID_LOG_WARN, "", false},
        {"*:E", ANDROID_LOG_ERROR, "", true},
        {"A:S", ANDROID_LOG_FATAL, "A", false},
        {"*:E A:x *:?", ANDROID_LOG_WARN, "A", false},  // no such priorities: passed over
        {"a:b:W", ANDROID_LOG_INFO, "a:b", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(LogFilter(c.tags).shows(c.priority, c.tag), c.shown)
            << (c.tags == nullptr ? "(null)" : c.tags) << " " << c.tag << " " << c.priority;
    }
}

TEST(LogTest, ShowsEachLineAsADeviceDoes) {
    testing::internal::CaptureStderr();
    const int length = __android_log_print(ANDROID_LOG_DEBUG, "Tag", "\ntwo %d\n", 7);
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "%s", std::string(3000, 'x').c_str());
    const std::string shown = testing::internal::GetCapturedStderr();
    EXPECT_EQ(length, 7);
    // Digits as 0, the numbers of process and thread as one: "MM-DD HH:MM:SS.mmm PID TID P TAG:
    // TEXT".
    std::string shape;
    for (const char c : shown.substr(0, shown.find("xxx"))) {
        shape += std::isdigit(static_cast<unsigned char>(c)) != 0 ? '0' : c;
    }
    const std::string number = format("%d", getpid());
    const std::string zeros = format("%5s", std::string(number.size(), '0').c_str());
    const std::string head = "00-00 00:00:00.000 " + zeros + " " + zeros;
    EXPECT_EQ(shape, head + " D Tag: \n" + head + " D Tag: two 0\n" + head + " E : ");
    EXPECT_EQ(std::count(shown.begin(), shown.end(), 'x'), 3000);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 3);
}

TEST(LogTest, OtherWaysIntoTheLogLookTheSame) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(__android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_WARN, "Tag", "%d", 42), 2);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(" W Tag: 42\n"), std::string::npos);

    EXPECT_EXIT(__android_log_assert("(p == NULL)", "Tag", "no %s", "memory"),
                testing::KilledBySignal(SIGABRT), " F Tag: no memory");
    EXPECT_EXIT(__android_log_assert("(p == NULL)", "Tag", nullptr),
                testing::KilledBySignal(SIGABRT), " F Tag: .*\\(p == NULL\\)");
}

TEST(LogTest, DropsWhatItFormatsWhileSwitchedOff) {
    const std::string text(3000, 'x');
    testing::internal::CaptureStderr();
    const uint64_t start = Journal::instance().mark();
    hostplatform::setLogDropped(true);
    EXPECT_EQ(__android_log_print(ANDROID_LOG_ERROR, "Tag", "%s", text.c_str()), 3000);
    hostplatform::setLogDropped(false);
    __android_log_print(ANDROID_LOG_ERROR, "Tag", "kept");
    EXPECT_EQ(Journal::instance().texts("log", start), std::vector<std::string>{"E/Tag: kept"});
    EXPECT_EQ(testing::internal::GetCapturedStderr().find('x'), std::string::npos);
}

TEST(PropertyTest, KeepsValuesThatFit) {
    const std::string longest(PROPERTY_VALUE_MAX - 1, 'x');
    const std::string tooLong = longest + "x";
    EXPECT_EQ(property_set("a", "one"), 0);
    EXPECT_EQ(property_set("longest", longest.c_str()), 0);
    EXPECT_LT(property_set("longest", tooLong.c_str()), 0);
    EXPECT_EQ(property_set("emptied", "x"), 0);
    EXPECT_EQ(property_set("emptied", nullptr), 0);
    struct {
        const char* key;
        const char* otherwise;
        std::string value;
    } const cases[] = {
        {"a", "other", "one"},         {"longest", nullptr, longest},
        {"emptied", "other", "other"}, {"never set", "other", "other"},
        {"never set", nullptr, ""},    {"never set", tooLong.c_str(), longest},
    };
    char value[PROPERTY_VALUE_MAX];
    for (const auto& c : cases) {
        EXPECT_EQ(property_get(c.key, value, c.otherwise), static_cast<int>(c.value.size()));
        EXPECT_EQ(value, c.value) << c.key;
    }

    const hostplatform::ScopedFault silent(hostplatform::Fault::PropertyService);
    EXPECT_LT(property_set("a", "two"), 0);
    EXPECT_EQ(property_get("a", value, "other"), 5);
    EXPECT_EQ(property_get("init.svc.mdnsd", value, nullptr), 0);
}

TEST(PropertyTest, TellsWhyMdnsdCannotBeStarted) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(property_get("init.svc.mdnsd", value, nullptr), 7);
    EXPECT_STREQ(value, "stopped");
    const uint64_t mark = Journal::instance().mark();
    EXPECT_EQ(property_set("ctl.start", "mdnsd"), 0);
    EXPECT_EQ(property_set("ctl.stop", "mdnsd"), 0);
    EXPECT_LT(property_set("ctl.start", "another"), 0);
    EXPECT_LT(property_set("init.svc.mdnsd", "running"), 0);
    EXPECT_EQ(Journal::instance().texts("log", mark),
              (std::vector<std::string>{
                  "E/hostplatform: mdnsd cannot be started: no system bus answers at "
                  "unix:path=/nonexistent/bus",
                  "E/hostplatform: there is no init service \"another\""}));
    property_get("init.svc.mdnsd", value, nullptr);
    EXPECT_STREQ(value, "stopped");
}

TEST(JournalTest, WaitsForEntriesOfOtherThreads) {
    Journal& journal = Journal::instance();
    const uint64_t mark = journal.mark();
    std::thread writer([&journal, mark] {
        journal.add("test", "first");
        journal.waitFor("test", "go on", mark);
        journal.add("other", "second");
        journal.add("test", "second\n\x01");
    });
    EXPECT_EQ(journal.waitFor("test", "fir", mark)->text, "first");
    EXPECT_FALSE(journal.waitFor("test", "second", mark, std::chrono::milliseconds(20)));
    journal.add("test", "go on");
    const auto second = journal.waitFor("test", "second", mark);
    writer.join();
    ASSERT_TRUE(second);
    EXPECT_NE(toString(*second).find("test       second\\n\\x01"), std::string::npos);
    EXPECT_EQ(journal.count("test", "second", mark), 1U);
    EXPECT_EQ(journal.count("test", "second", second->sequence + 1), 0U);

    journal.setCapacity(2);
    EXPECT_EQ(journal.entries(mark).size(), 2U);
    EXPECT_EQ(journal.entries(mark).back().sequence, second->sequence);
    journal.setCapacity(1000);
}

TEST(JournalTest, LineHasTheTimeInMicroseconds) {
    hostplatform::JournalEntry entry;
    entry.time = std::chrono::system_clock::from_time_t(0) + std::chrono::microseconds(1'020'034);
    EXPECT_NE(toString(entry).find(":01.020034 "), std::string::npos) << toString(entry);
}

TEST(ClockTest, DeviceTimePassesAtItsScaleAndNeverBack) {
    const uint64_t begin = osal_clock_ms();
    hostplatform::setTimeScale(2000);
    osal_sleep_ms(10'000);
    const uint64_t fast = osal_clock_ms();
    EXPECT_GE(fast - begin, 10'000U);
    hostplatform::setTimeScale(1);
    const uint64_t slow = osal_clock_ms();
    EXPECT_GE(slow, fast);
    osal_sleep_ms(5);
    EXPECT_LT(osal_clock_ms() - slow, 5000U);
}

}  // namespace
