#include "virtual_display.h"

#include "Compositor.h"
#include "DeviceTest.h"
#include "Faults.h"

namespace {

using android::Rect;
using android::ui::Rotation;
using hostplatform::Compositor;
using hostplatform::Fault;

class TestProducer : public android::IGraphicBufferProducer {};

class VirtualDisplayTest : public DeviceTest {
 protected:
    ~VirtualDisplayTest() override {
        releaseVDS();
        EXPECT_TRUE(compositor.virtualDisplays().empty());
    }

    mmSessionInfo stream(uint32_t width, uint32_t height) const {
        mmSessionInfo info{};
        info.width = width;
        info.height = height;
        info.producer = producer.get();
        return info;
    }

    Compositor& compositor = Compositor::instance();
    const android::sp<android::IGraphicBufferProducer> producer = new TestProducer;
};

TEST_F(VirtualDisplayTest, FitsTheScreenIntoTheStream) {
    struct {
        android::ui::Size screen;
        Rotation rotation;
        uint32_t width;
        uint32_t height;
        Rect source;
        Rect destination;
    } const cases[] = {
        {{1920, 1080}, Rotation::Rotation0, 1280, 720, {0, 0, 1920, 1080}, {0, 0, 1280, 720}},
        {{1080, 1920}, Rotation::Rotation0, 1280, 720, {0, 0, 1080, 1920}, {437, 0, 842, 720}},
        {{1280, 800}, Rotation::Rotation0, 1280, 720, {0, 0, 1280, 800}, {64, 0, 1216, 720}},
        {{2340, 1080}, Rotation::Rotation180, 1920, 1080, {0, 0, 2340, 1080}, {0, 97, 1920, 983}},
        {{800, 480}, Rotation::Rotation0, 640, 480, {0, 0, 800, 480}, {0, 48, 640, 432}},
        // Turned: the picture is as wide as the panel is high.
        {{1080, 1920}, Rotation::Rotation90, 1280, 720, {0, 0, 1920, 1080}, {0, 0, 1280, 720}},
        {{1920, 1080}, Rotation::Rotation270, 1280, 720, {0, 0, 1080, 1920}, {437, 0, 842, 720}},
        // The candidate width is the stream's: the width limits. In a wider precision than single
        // the heights would be 720 and 600.
        {{640, 576}, Rotation::Rotation0, 800, 720, {0, 0, 640, 576}, {0, 0, 800, 719}},
        {{640, 600}, Rotation::Rotation0, 640, 600, {0, 0, 640, 600}, {0, 0, 640, 599}},
        // A screen without a known size counts as an immense square.
        {{-1, -1},
         Rotation::Rotation0,
         1280,
         720,
         {0, 0, 2147483647, 2147483647},
         {280, 0, 1000, 720}},
        {{2000000000, 1},
         Rotation::Rotation0,
         1280,
         720,
         {0, 0, 2000000000, 1},
         {0, 360, 1280, 360}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.screen.width << "x" << c.screen.height << " rotation "
                                        << static_cast<int>(c.rotation));
        compositor.setInternalDisplay(c.screen, c.rotation);
        mmSessionInfo info = stream(c.width, c.height);
        mark();
        testing::internal::CaptureStderr();
        EXPECT_EQ(createVDS(&info), 0);
        const std::string standardError = testing::internal::GetCapturedStderr();
        const bool known = c.screen.width >= 0;
        const auto line = testing::Message()
                          << "Source Width = " << (known ? c.source.right : -1)
                          << " , Height = " << (known ? c.source.bottom : -1) << " .\n";
        EXPECT_NE(standardError.find(line.GetString()), std::string::npos) << standardError;
        const auto displays = compositor.virtualDisplays();
        ASSERT_EQ(displays.size(), 1U);  // the one before has gone
        EXPECT_EQ(displays[0].name, "venc-widi");
        EXPECT_FALSE(displays[0].secure);
        EXPECT_EQ(displays[0].producer, producer);
        EXPECT_EQ(displays[0].layerStack, 0U);
        EXPECT_EQ(displays[0].rotation, Rotation::Rotation0);
        EXPECT_EQ(displays[0].source, c.source);
        const Rect& shown = displays[0].destination;
        EXPECT_EQ(shown, c.destination)
            << shown.left << " " << shown.top << " " << shown.right << " " << shown.bottom;
        EXPECT_TRUE(logged((testing::Message()
                            << "Destination Width = " << c.destination.right - c.destination.left
                            << " , Height = " << c.destination.bottom - c.destination.top << " ")
                               .GetString()));
        EXPECT_TRUE(logged((testing::Message() << "with X offset = " << c.destination.left
                                               << " , Y offset = " << c.destination.top << "\n")
                               .GetString()));
        EXPECT_EQ(logLines().back(), "Done with display configuration \n");
    }
}

TEST_F(VirtualDisplayTest, SaysWhyThereIsNone) {
    const hostplatform::ScopedFault refused(Fault::VirtualDisplayCreation);
    const std::string begun = "Source module provided surface\n";
    struct {
        const char* name;
        android::ui::Size screen;
        std::vector<std::string> log;
        std::string standardError;  // beyond the log's lines
    } const cases[] = {
        {"no size", {0, 5}, {begun, "Can't configure VDS err = -1"}, "Invalid parameters.\n"},
        {"refused",
         {1920, 1080},
         {begun, "Destination Width = 1280 , Height = 720 ", "with X offset = 0 , Y offset = 0\n",
          "Can't configure VDS err = -1"},
         "Unable to create Virtual Display"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        compositor.setInternalDisplay(c.screen, Rotation::Rotation0);
        mmSessionInfo info = stream(1280, 720);
        mark();
        testing::internal::CaptureStderr();
        EXPECT_EQ(createVDS(&info), -1);
        EXPECT_NE(testing::internal::GetCapturedStderr().find(c.standardError), std::string::npos);
        EXPECT_EQ(logLines(), c.log);
        EXPECT_TRUE(compositor.virtualDisplays().empty());
    }
}

TEST_F(VirtualDisplayTest, HoldsTheProducerWhileTheDisplayIsThere) {
    mmSessionInfo info = stream(1280, 720);
    info.secure = 2;
    const int32_t before = producer->getStrongCount();
    ASSERT_EQ(createVDS(&info), 0);
    EXPECT_TRUE(compositor.virtualDisplays().at(0).secure);
    EXPECT_GT(producer->getStrongCount(), before);

    // A refused request changes nothing.
    mmSessionInfo bad = stream(1280, 720);
    bad.producer = nullptr;
    mark();
    EXPECT_EQ(createVDS(&bad), -1);
    EXPECT_EQ(createVDS(nullptr), -1);
    EXPECT_EQ(logLines(), std::vector<std::string>(2, "\n Invalid argument passed to createVDS!"));
    EXPECT_EQ(compositor.virtualDisplays().size(), 1U);

    mark();
    releaseVDS();
    releaseVDS();
    EXPECT_EQ(logLines(), std::vector<std::string>{"Done with display destruction"});
    EXPECT_EQ(producer->getStrongCount(), before);
}

}  // namespace
