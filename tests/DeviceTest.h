// What the tests of the library on the simulated device share.
#pragma once

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "host/SimulatedDevice.h"
#include "miracast_sigma.h"
#include "process.h"

using Lines = std::vector<std::string>;

// Ends the UIBC worker as a source's teardown does, which waits for it, and lets it be set up anew.
void endUibcWorker();

// Each test starts on a device with all switches at rest, as a source without a session, and ends
// with all threads gone and nothing left on the compositor. Device time passes in sleeps only, so a
// wait is as long as its sleeps say. In a sleep of the test's own thread the session client reports
// all that it has to report.
class DeviceTest : public testing::Test {
 protected:
    DeviceTest();
    ~DeviceTest() override;

    hostplatform::Journal& journal() const { return device.journal(); }
    // Starts a session with a peer of that type and waits for its reports.
    void startSession(int peerType);
    // What the journal has of a component since the mark, and what of it came from this thread.
    Lines calls(const std::string& component = "session") const;
    Lines ownCalls(const std::string& component) const;
    bool waitWorkers() const;  // until no thread is left that the test made
    void mark() { mMark = journal().mark(); }
    uint64_t marked() const { return mMark; }

    hostplatform::SimulatedDevice& device = hostplatform::device();
    hostplatform::Compositor& compositor = device.compositor();
    long mThreads = 0;  // so many may be left at the end

 private:
    uint64_t mMark = 0;
};
