// What the tests of the library on the simulated device share.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Journal.h"
#include "SessionService.h"
#include "SimulatedDevice.h"
#include "miracast_sigma.h"

// Ends the UIBC worker as a source's teardown does, which waits for it, and lets it be set up anew.
void endUibcWorker();

// Each test starts with all switches at rest, with a mark from which it reads the journal, and ends
// with nothing left to be reported.
class DeviceTest : public testing::Test {
 protected:
    DeviceTest();
    ~DeviceTest() override;

    hostplatform::Journal& journal() const { return hostplatform::Journal::instance(); }

    // What this thread has logged since the mark, without priority and tag, line ends kept. Error
    // priority and no tag are checked here.
    std::vector<std::string> logLines() const;
    // Whether any thread has logged exactly this since the mark.
    bool logged(const std::string& line) const;
    std::vector<std::string> calls(const std::string& component = "session") const;
    // Forgets what was journalled so far.
    void mark() { mMark = journal().mark(); }
    uint64_t marked() const { return mMark; }

 private:
    uint64_t mMark = 0;
};

// As DeviceTest, with device time passing 200 times as fast: the minute in which a session has to
// come up is still long enough for a busy machine.
class FastDeviceTest : public DeviceTest {
 protected:
    FastDeviceTest();
};
