#include "uibc.h"

#include <sys/resource.h>

#include <thread>

#include "Clock.h"
#include "DeviceTest.h"
#include "osal/osal.h"

namespace {

using hostplatform::keyEvent;
using hostplatform::touchEvent;

// Leaves no worker and no queue behind, whatever a test did.
class UibcTest : public FastDeviceTest {
 protected:
    ~UibcTest() override {
        endUibcWorker();
        flushUIBCList();
    }

    static bool inject(WFD_uibc_event_t event) {
        return injectEvent(&event, nullptr, nullptr, nullptr);
    }
    static void injectOldestQueued() { manipulateList(uibcItem{0, {}}); }
};

TEST_F(UibcTest, TranslatesCharactersToKeys) {
    struct {
        const char* name;
        std::vector<std::pair<unsigned, int>> keys;
    } const cases[] = {
        {"digits", {{'0', 7}, {'5', 12}, {'9', 16}}},
        {"letters", {{'a', 29}, {'A', 29}, {'m', 41}, {'z', 54}, {'Z', 54}}},
        {"controls", {{8, 67}, {9, 61}, {13, 66}, {27, 111}, {32, 62}, {127, 112}}},
        {"signs",
         {{'!', 8},
          {'#', 18},
          {'$', 11},
          {'%', 12},
          {'&', 14},
          {'(', 162},
          {')', 163},
          {'*', 17},
          {',', 55},
          {'.', 56},
          {'/', 76},
          {'@', 77},
          {'^', 13}}},
        {"without a key",
         {{0, 0},
          {'~', 0},
          {'[', 0},
          {'{', 0},
          {'`', 0},
          {':', 0},
          {'"', 0},
          {'\'', 0},
          {'\n', 0},
          {0x130, 0},
          {0x141, 0},
          {0xffff, 0},
          {0xffffffffU, 0}}},
    };
    for (const auto& c : cases) {
        for (const auto& [keysym, key] : c.keys) {
            EXPECT_EQ(keysym2keycode(keysym), key) << c.name << " " << keysym;
        }
    }
}

TEST_F(UibcTest, InjectsEachKindOfEvent) {
    const std::string done = "UIBC[Src]Done injecting event\n\n";
    struct {
        WFD_uibc_event_t event;
        std::vector<std::string> tools;
        std::vector<std::string> log;
    } const cases[] = {
        {keyEvent('a', 0), {"input keyevent 29"}, {"UIBC[Src]KEY DOWN\n"}},
        {keyEvent('~', 0), {"input keyevent 0"}, {"UIBC[Src]KEY DOWN\n"}},
        {keyEvent('a', 1), {}, {"UIBC[Src]KEY_UP\n"}},
        {keyEvent('a', 2), {}, {}},
        {touchEvent(0), {"input tap 400 500"}, {"UIBC[Src]TOUCH_DN\n"}},
        {touchEvent(1), {}, {"UIBC[Src]TOUCH_UP\n"}},
        {touchEvent(2), {"input tap 300 1000"}, {"UIBC[Src]TOUCH_MOVE\n"}},
        {touchEvent(0xffffffffU), {"input tap 300 1000"}, {"UIBC[Src]TOUCH_MOVE\n"}},
        {WFD_uibc_event_t{2, 0, {}}, {}, {"UIBC[Src]Unsupported UIBC event type\n"}},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(inject(c.event));
        ASSERT_TRUE(inject(c.event));
        manipulateList(uibcItem{2, {}});  // no operation of this number
        ASSERT_EQ(myList.size(), 2U);
        injectOldestQueued();
        mark();
        injectOldestQueued();
        EXPECT_EQ(calls("tool"), c.tools);
        std::vector<std::string> log = {"UIBC[Src]Process UIBC event. Pending events[0]\n"};
        log.insert(log.end(), c.log.begin(), c.log.end());
        log.push_back(done);
        EXPECT_EQ(logLines(), log);
    }
    mark();
    injectOldestQueued();
    EXPECT_TRUE(logLines().empty());
    EXPECT_FALSE(injectEvent(nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(logLines(), std::vector<std::string>{"UIBC[Src] Invalid argument\n"});
}

TEST_F(UibcTest, WorkerInjectsOneEventPerSecond) {
    for (const char key : {'a', 'b', 'c'}) inject(keyEvent(static_cast<uint16_t>(key), 0));
    const uint64_t begin = osal_clock_ms();
    EXPECT_EQ(setUpUibc(), 0);
    ASSERT_TRUE(journal().waitFor("log", "Pending events[0]", marked()));
    EXPECT_GE(osal_clock_ms() - begin, 3000U);
    // The third command runs before its last line is logged.
    ASSERT_TRUE(journal().waitFor("tool", "input keyevent 31", marked()));
    const std::vector<std::string> tools = {"input keyevent 29", "input keyevent 30",
                                            "input keyevent 31"};
    EXPECT_EQ(calls("tool"), tools);
    EXPECT_TRUE(logged("UIBC[Src]Create UIBC worker thread to process events\n"));
    EXPECT_TRUE(logged("Worker thread created!\n"));
    for (int pending = 0; pending < 3; ++pending) {
        EXPECT_EQ(journal().count("log", "Pending events[" + std::to_string(pending), marked()),
                  1U);
    }

    // A second call prepares for the next event with the worker that there is, or has been.
    endUibcWorker();
    uibc_setup_done = 1;
    inject(keyEvent('d', 0));
    mark();
    const uint64_t again = osal_clock_ms();
    EXPECT_EQ(setUpUibc(), 0);
    EXPECT_GE(osal_clock_ms() - again, 1000U);
    EXPECT_TRUE(myList.empty());
    const std::vector<std::string> log = {"UIBC[Src]Prepare for next event\n",
                                          "Flushing UIBC event list\n"};
    EXPECT_EQ(logLines(), log);
}

TEST_F(UibcTest, BurstFromFourThreadsIsInjectedCompletelyAndInOrder) {
    // Each thread types ten keys of its own over and over.
    const std::string keys[] = {"abcdefghij", "klmnopqrst", "0123456789", "#()*,./@ \t"};
    constexpr size_t kPerThread = 250;
    setUpUibc();
    std::vector<std::thread> threads;
    for (const std::string& own : keys) {
        threads.emplace_back([&own] {
            for (size_t i = 0; i < kPerThread; ++i) {
                EXPECT_TRUE(inject(keyEvent(static_cast<uint16_t>(own[i % own.size()]), 0)));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    // The worker takes one event each second of device time.
    hostplatform::setTimeScale(100'000);
    for (size_t left = 1; left > 0;) {
        const android::Mutex::Autolock lock(mLock);
        left = myList.size();
    }
    endUibcWorker();

    const std::vector<std::string> injected = calls("tool");
    EXPECT_EQ(injected.size(), 4 * kPerThread);
    for (const std::string& own : keys) {
        std::vector<std::string> expected;
        for (const char key : own) {
            expected.push_back("input keyevent " +
                               std::to_string(keysym2keycode(static_cast<unsigned char>(key))));
        }
        size_t count = 0;
        for (const std::string& command : injected) {
            if (std::find(expected.begin(), expected.end(), command) == expected.end()) continue;
            EXPECT_EQ(command, expected[count % expected.size()]) << own << " number " << count;
            ++count;
        }
        EXPECT_EQ(count, kPerThread) << own;
    }
}

TEST_F(UibcTest, GeneratingAnEventWaitsForTheSink) {
    struct {
        int kind;
        int result;
        uint64_t milliseconds;
        const char* log;
    } const cases[] = {
        {0, 0, 10000, "UIBCEvent: Mouse event injection\n"},
        {1, 0, 10000, "UIBCEvent: Keyboard event injection!\n"},
        {2, 0, 10000, "UIBCEvent: HID Keyboard event injection!\n"},
        {3, -1, 0, "UIBCEvent:Unknown UIBC Event! :(\n"},
        {-1, -1, 0, "UIBCEvent:Unknown UIBC Event! :(\n"},
    };
    for (const auto& c : cases) {
        mark();
        const uint64_t begin = osal_clock_ms();
        EXPECT_EQ(cmd_generate_UIBCEvent(c.kind), c.result);
        EXPECT_GE(osal_clock_ms() - begin, c.milliseconds);
        const std::vector<std::string> log = {"UIBC Event Generation code.\n", c.log};
        EXPECT_EQ(logLines(), log);
    }
}

}  // namespace
