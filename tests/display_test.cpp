// What the compositor is made to show: a sink's surface and a source's virtual display.
#include <limits>
#include <tuple>

#include "DeviceTest.h"
#include "sink_surface.h"
#include "virtual_display.h"

namespace {

using android::Rect;
using android::ui::Rotation;
using hostplatform::Fault;

class DisplayTest : public DeviceTest {
 protected:
    mmSessionInfo stream(uint32_t width, uint32_t height) const {
        return {height, width, 0, producer.get()};
    }

    const android::sp<android::IGraphicBufferProducer> producer =
        new android::IGraphicBufferProducer;
};

TEST_F(DisplayTest, SurfaceFillsTheDisplay) {
    // The display's resolution and rotation, and the layer's size.
    const std::tuple<android::ui::Size, Rotation, uint32_t, uint32_t> cases[] = {
        {{1080, 1920}, Rotation::Rotation0, 1080, 1920},
        {{1080, 1920}, Rotation::Rotation90, 1920, 1080},
        {{1080, 1920}, Rotation::Rotation180, 1080, 1920},
        {{1080, 1920}, Rotation::Rotation270, 1920, 1080},
        {{0, 0}, Rotation::Rotation0, 800, 480},
        {{0, 600}, Rotation::Rotation90, 600, 480},
    };
    for (const auto& [resolution, rotation, width, height] : cases) {
        compositor.setInternalDisplay(resolution, rotation);
        const android::Surface* const surface = getSurface();
        ASSERT_NE(surface, nullptr);
        const auto layers = compositor.layers();
        ASSERT_EQ(layers.size(), 1U);  // the one before has gone
        EXPECT_EQ(layers[0].id, surface->layerId());
        EXPECT_EQ(std::pair(layers[0].width, layers[0].height), std::pair(width, height));
        EXPECT_TRUE(layers[0].visible);
        EXPECT_EQ(compositor.openConnections(), 1);
        EXPECT_EQ(compositor.liveSurfaces(), 1);
    }
    deleteSurface();
    EXPECT_EQ(compositor.liveSurfaces(), 0);
}

TEST_F(DisplayTest, ClientHasTheNextSurfaceBeforeTheOneInUseGoes) {
    EXPECT_EQ(setWFDSurface(), -1);  // no client yet
    EXPECT_TRUE(compositor.layers().empty());
    startSession(0);
    for (int i = 0; i < 2; ++i) {
        mark();
        EXPECT_EQ(setWFDSurface(), 0);
        EXPECT_EQ(device.session().current()->surface->layerId(), compositor.layers().at(0).id);
    }
    const auto removed = journal().waitFor("compositor", "removed", marked());
    const auto handed = journal().waitFor("session", "setSurface", marked());
    ASSERT_TRUE(removed && handed);
    EXPECT_LT(handed->sequence, removed->sequence);
    EXPECT_EQ(compositor.layers().size(), 1U);
    device.faults().set(Fault::LayerCreation);  // the client is told that there is none
    EXPECT_EQ(setWFDSurface(), 0);
    EXPECT_EQ(device.session().current()->surface, nullptr);
}

TEST_F(DisplayTest, ScreenFitsIntoTheStream) {
    const auto all = std::numeric_limits<int32_t>::max();
    // The display's resolution and rotation, the stream's size, and what is shown where.
    const std::tuple<android::ui::Size, Rotation, uint32_t, uint32_t, Rect, Rect> cases[] = {
        {{1920, 1080}, Rotation::Rotation0, 1280, 720, {0, 0, 1920, 1080}, {0, 0, 1280, 720}},
        {{1080, 1920}, Rotation::Rotation0, 1280, 720, {0, 0, 1080, 1920}, {437, 0, 842, 720}},
        {{2340, 1080}, Rotation::Rotation180, 1920, 1080, {0, 0, 2340, 1080}, {0, 97, 1920, 983}},
        // Turned: the picture is as wide as the panel is high.
        {{1080, 1920}, Rotation::Rotation90, 1280, 720, {0, 0, 1920, 1080}, {0, 0, 1280, 720}},
        {{1920, 1080}, Rotation::Rotation270, 1280, 720, {0, 0, 1080, 1920}, {437, 0, 842, 720}},
        // The candidate width is the stream's: the width limits. In a wider precision than single
        // the heights would be 720 and 600.
        {{640, 576}, Rotation::Rotation0, 800, 720, {0, 0, 640, 576}, {0, 0, 800, 719}},
        {{640, 600}, Rotation::Rotation0, 640, 600, {0, 0, 640, 600}, {0, 0, 640, 599}},
        // A screen without a known size counts as an immense square.
        {{-1, -1}, Rotation::Rotation0, 1280, 720, {0, 0, all, all}, {280, 0, 1000, 720}},
        // The candidate width is 2 to the power of 32, more than an unsigned number holds.
        {{65536, 1}, Rotation::Rotation0, 1280, 65536, {0, 0, 65536, 1}, {0, 32768, 1280, 32768}},
    };
    for (const auto& [screen, rotation, width, height, source, destination] : cases) {
        compositor.setInternalDisplay(screen, rotation);
        mmSessionInfo info = stream(width, height);
        EXPECT_EQ(createVDS(&info), 0);
        const auto displays = compositor.virtualDisplays();
        ASSERT_EQ(displays.size(), 1U);  // the one before has gone
        EXPECT_EQ(displays[0].source, source);
        EXPECT_EQ(displays[0].destination, destination);
        EXPECT_FALSE(displays[0].secure);
    }
    for (const android::ui::Size screen : {android::ui::Size(0, 5), android::ui::Size(5, 0)}) {
        compositor.setInternalDisplay(screen, Rotation::Rotation0);
        mmSessionInfo info = stream(1280, 720);
        EXPECT_EQ(createVDS(&info), -1);
        EXPECT_TRUE(compositor.virtualDisplays().empty());
    }
}

TEST_F(DisplayTest, HoldsTheProducerWhileTheVirtualDisplayIsThere) {
    mmSessionInfo info = stream(1280, 720);
    const int32_t before = producer->getStrongCount();
    ASSERT_EQ(createVDS(&info), 0);
    EXPECT_GT(producer->getStrongCount(), before);
    // A refused request changes nothing.
    mmSessionInfo bad = stream(1280, 720);
    bad.producer = nullptr;
    EXPECT_EQ(createVDS(&bad), -1);
    EXPECT_EQ(createVDS(nullptr), -1);
    EXPECT_EQ(compositor.virtualDisplays().size(), 1U);
    releaseVDS();
    EXPECT_EQ(producer->getStrongCount(), before);
}

}  // namespace
