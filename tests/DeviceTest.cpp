#include "DeviceTest.h"

#include <unistd.h>

#include <algorithm>

#include "Clock.h"
#include "ShellTools.h"
#include "session_events.h"

using namespace hostplatform;

namespace {

const std::string kPrefix = "E/: ";

}  // namespace

DeviceTest::DeviceTest() {
    // Once, before the library starts any thread.
    static const bool tools = installShellTools(shellToolsDirectory());
    EXPECT_TRUE(tools);
    resetSwitches();
    mMark = journal().mark();
}

DeviceTest::~DeviceTest() {
    EXPECT_TRUE(waitReported());
    resetSwitches();
}

std::vector<std::string> DeviceTest::logLines() const {
    std::vector<std::string> lines;
    for (const JournalEntry& entry : journal().entries(mMark)) {
        if (entry.component != "log" || entry.thread != gettid()) continue;
        EXPECT_EQ(entry.text.substr(0, kPrefix.size()), kPrefix) << entry.text;
        lines.push_back(entry.text.substr(kPrefix.size()));
    }
    return lines;
}

bool DeviceTest::logged(const std::string& line) const {
    const std::vector<std::string> lines = calls("log");
    return std::find(lines.begin(), lines.end(), kPrefix + line) != lines.end();
}

std::vector<std::string> DeviceTest::calls(const std::string& component) const {
    return journal().texts(component, mMark);
}

void endUibcWorker() {
    const int32_t role = wfd_device_type.exchange(0);
    char teardown[2][256] = {"any", "TEARDOWN"};
    miracastWfdStringArrayCallback("any", 2, teardown, nullptr);
    wfd_device_type = role;
    uibc_setup_done = 0;
    uibc_complete_flag = 0;
}

FastDeviceTest::FastDeviceTest() { setTimeScale(200); }
