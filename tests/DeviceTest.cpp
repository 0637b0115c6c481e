#include "DeviceTest.h"

#include <unistd.h>

#include "session_events.h"
#include "sink_surface.h"
#include "uibc.h"
#include "virtual_display.h"

void endUibcWorker() {
    terminate_uibc_worker();
    joinUibcWorker();
    uibc_setup_done = 0;
    uibc_complete_flag = 0;
}

DeviceTest::DeviceTest() {
    // Once, before the library starts any thread.
    static const bool tools = device.shellTools().install();
    EXPECT_TRUE(tools);
    device.clock().setManual();
    device.clock().onSleep([this, test = gettid()](uint32_t) {
        if (gettid() == test) device.session().waitReported();
    });
    mThreads = threadCount();
    mark();
}

DeviceTest::~DeviceTest() {
    device.reset();
    device.clock().setManual();
    // Ends the session that runs, whatever a test did to its identifier.
    const auto session = device.session().current();
    g_wfd_session_id = session && session->active ? session->id : 0;
    sta_reset_default("");
    EXPECT_TRUE(device.session().waitReported());
    endUibcWorker();
    flushUIBCList();
    EXPECT_TRUE(waitWorkers()) << threadCount();
    deleteSurface();
    releaseVDS();
    EXPECT_TRUE(compositor.layers().empty() && compositor.virtualDisplays().empty());
    EXPECT_EQ(compositor.openConnections(), 0);
    gWFDClient = nullptr;
    wfd_device_type = MIRACAST_SOURCE;
    device.reset();
}

void DeviceTest::startSession(int peerType) {
    ASSERT_EQ(startWfdConnection("", "192.168.49.2", 7236, peerType, nullptr, nullptr), 0);
    ASSERT_TRUE(device.session().waitReported());
    mark();
}

bool DeviceTest::waitWorkers() const {
    return waitUntil([this] { return threadCount() <= mThreads; });
}

Lines DeviceTest::calls(const std::string& component) const {
    return journal().texts(component, mMark);
}

Lines DeviceTest::ownCalls(const std::string& component) const {
    Lines texts;
    for (const auto& entry : journal().entries(mMark)) {
        if (entry.component == component && entry.thread == gettid()) texts.push_back(entry.text);
    }
    return texts;
}
