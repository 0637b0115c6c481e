#include "sink_surface.h"

#include "Compositor.h"
#include "DeviceTest.h"
#include "Faults.h"

namespace {

using android::ui::Rotation;
using hostplatform::Compositor;
using hostplatform::Fault;

class SinkSurfaceTest : public FastDeviceTest {
 protected:
    ~SinkSurfaceTest() override {
        deleteSurface();
        EXPECT_TRUE(compositor.layers().empty());
        EXPECT_EQ(compositor.openConnections(), 0);
        EXPECT_EQ(compositor.liveSurfaces(), 0);
    }

    Compositor& compositor = Compositor::instance();
};

TEST_F(SinkSurfaceTest, FillsTheDisplayOverEverythingElse) {
    struct {
        android::ui::Size resolution;
        Rotation rotation;
        int stateStatus;
        int configStatus;
        uint32_t width;
        uint32_t height;
    } const cases[] = {
        {{1080, 1920}, Rotation::Rotation0, 0, 0, 1080, 1920},
        {{1080, 1920}, Rotation::Rotation90, 0, 0, 1920, 1080},
        {{1080, 1920}, Rotation::Rotation180, 0, 0, 1080, 1920},
        {{1080, 1920}, Rotation::Rotation270, 0, 0, 1920, 1080},
        {{0, 0}, Rotation::Rotation0, 0, 0, 800, 480},
        {{0, 600}, Rotation::Rotation0, 0, 0, 800, 600},
        {{0, 600}, Rotation::Rotation90, 0, 0, 600, 480},
        {{1080, 1920}, Rotation::Rotation0, -38, 0, 800, 640},
        {{1080, 1920}, Rotation::Rotation90, 0, -38, 800, 640},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.resolution.width << "x" << c.resolution.height
                                        << " rotation " << static_cast<int>(c.rotation));
        compositor.setInternalDisplay(c.resolution, c.rotation);
        hostplatform::setFault(Fault::DisplayStateQuery, c.stateStatus);
        hostplatform::setFault(Fault::DisplayConfigQuery, c.configStatus);
        const android::Surface* const surface = getSurface();
        // The set before it has gone.
        const auto layers = compositor.layers();
        ASSERT_EQ(layers.size(), 1U);
        ASSERT_NE(surface, nullptr);
        EXPECT_EQ(layers[0].id, surface->layerId());
        EXPECT_EQ(layers[0].name, "Wfd Sink Surface");
        EXPECT_EQ(layers[0].width, c.width);
        EXPECT_EQ(layers[0].height, c.height);
        EXPECT_EQ(layers[0].format, 1);
        EXPECT_EQ(layers[0].flags, 0U);
        EXPECT_EQ(layers[0].z, 2147483646);
        EXPECT_TRUE(layers[0].visible);
        EXPECT_EQ(compositor.openConnections(), 1);
        EXPECT_EQ(compositor.liveSurfaces(), 1);
    }
}

TEST_F(SinkSurfaceTest, HandsTheSurfaceToTheClient) {
    EXPECT_EQ(setWFDSurface(), -1);  // no client yet
    ASSERT_EQ(startWfdConnection("", "192.168.49.2", 7236, 0, nullptr, nullptr), 0);
    ASSERT_TRUE(hostplatform::waitReported());
    mark();
    EXPECT_EQ(setWFDSurface(), 0);
    EXPECT_EQ(logLines().back(), "setsurface returned 0");
    EXPECT_EQ(hostplatform::currentSession()->surface->layerId(), compositor.layers().at(0).id);
    {
        const hostplatform::ScopedFault refused(Fault::LayerCreation);
        EXPECT_EQ(setWFDSurface(), 0);
        EXPECT_EQ(hostplatform::currentSession()->surface, nullptr);
    }
    const hostplatform::ScopedFault fault(Fault::SessionControl, -19);
    EXPECT_EQ(setWFDSurface(), -19);
    EXPECT_EQ(logLines().back(), "setsurface returned -19");
}

}  // namespace
