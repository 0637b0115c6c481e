#include "virtual_display.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <mutex>
#include <utility>

#include "gui/SurfaceComposerClient.h"
#include "sigma_log.h"

using android::SurfaceComposerClient;

namespace {

// Holds a strong reference that is not destroyed with the process.
template <typename T>
union Undestroyed {
    Undestroyed() : reference() {}
    ~Undestroyed() {}
    android::sp<T> reference;
};

// Two sessions' event threads can meet here when one session ends as the next begins, and both can
// meet the end of the process. So the references are released then, under the lock, but never
// destroyed: whoever comes later finds them empty and not gone.
std::mutex virtualDisplayMutex;  // guards the two references
Undestroyed<android::IBinder> displayHolder;
Undestroyed<android::IGraphicBufferProducer> producerHolder;
android::sp<android::IBinder>& gVDSDisplay = displayHolder.reference;
android::sp<android::IGraphicBufferProducer>& gVDSProducer = producerHolder.reference;

struct ReleaseAtUnload {
    ~ReleaseAtUnload() {
        const std::lock_guard lock(virtualDisplayMutex);
        gVDSProducer.clear();
        gVDSDisplay.clear();
    }
} releaseAtUnload;

void destroyVirtualDisplay() {
    if (gVDSDisplay == nullptr) return;
    gVDSProducer.clear();
    SurfaceComposerClient::destroyDisplay(gVDSDisplay);
    SIGMA_LOG("Done with display destruction");
    gVDSDisplay.clear();
}

// Toward zero; beyond the range of the result its nearest end, as the device's processor does it.
uint32_t truncated(float value) {
    if (!(value > 0.0F)) return 0;
    if (value >= 4294967296.0F) return std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(value);
}

struct PictureSize {
    uint32_t width;
    uint32_t height;
};

// The largest size of the source's aspect ratio inside the stream's picture. Single precision: a
// wider type would round some sizes to another pixel.
PictureSize fitted(const PictureSize& source, const mmSessionInfo& stream) {
    const auto aspect =
        static_cast<float>(static_cast<double>(source.width) / static_cast<double>(source.height));
    const uint32_t candidateWidth = truncated(aspect * static_cast<float>(stream.height));
    if (stream.width <= candidateWidth) {
        return {stream.width, truncated(static_cast<float>(stream.width) / aspect)};
    }
    return {candidateWidth, stream.height};
}

}  // namespace

int createVDS(void* info) {
    auto* const stream = static_cast<mmSessionInfo*>(info);
    if (stream == nullptr || stream->producer == nullptr) {
        SIGMA_LOG("\n Invalid argument passed to createVDS!");
        return -1;
    }
    SIGMA_LOG("Source module provided surface\n");
    const std::lock_guard lock(virtualDisplayMutex);
    const android::sp<android::IGraphicBufferProducer> producer = stream->producer;
    destroyVirtualDisplay();
    gVDSProducer = producer;

    const android::sp<android::IBinder> display = SurfaceComposerClient::getInternalDisplayToken();
    if (display == nullptr) {
        SIGMA_LOG("Failed to find any physcial display!\n");
        return 0;
    }
    android::ui::DisplayState state;
    const android::status_t status = SurfaceComposerClient::getDisplayState(display, &state);
    if (status != android::OK) {
        SIGMA_LOG("Can't get display state %d\n", status);
        return status;
    }
    const int result = configureVirtualDisplay(display, state, gVDSProducer, &gVDSDisplay, stream);
    if (result != 0) SIGMA_LOG("Can't configure VDS err = %d", result);
    return result;
}

int configureVirtualDisplay(const android::sp<android::IBinder>& display,
                            const android::ui::DisplayState& state,
                            const android::sp<android::IGraphicBufferProducer>& producer,
                            android::sp<android::IBinder>* outDisplay, mmSessionInfo* info) {
    android::DisplayConfig config;
    SurfaceComposerClient::getActiveDisplayConfig(display, &config);
    PictureSize source{static_cast<uint32_t>(config.resolution.getWidth()),
                       static_cast<uint32_t>(config.resolution.getHeight())};
    if (state.orientation == android::ui::Rotation::Rotation90 ||
        state.orientation == android::ui::Rotation::Rotation270) {
        std::swap(source.width, source.height);
    }
    if (source.width == 0 || source.height == 0) {
        fprintf(stderr, "Invalid parameters.\n");
        return -1;
    }
    constexpr uint32_t kLargest = std::numeric_limits<int32_t>::max();
    const android::Rect shown(0, 0, static_cast<int32_t>(std::min(source.width, kLargest)),
                              static_cast<int32_t>(std::min(source.height, kLargest)));
    fprintf(stderr, "Source Width = %d , Height = %d .\n", static_cast<int>(source.width),
            static_cast<int>(source.height));

    const PictureSize size = fitted(source, *info);
    const uint32_t x = (info->width - size.width) >> 1;
    const uint32_t y = (info->height - size.height) >> 1;
    const android::Rect place(static_cast<int32_t>(x), static_cast<int32_t>(y),
                              static_cast<int32_t>(x + size.width),
                              static_cast<int32_t>(y + size.height));
    SIGMA_LOG("Destination Width = %d , Height = %d ", static_cast<int>(size.width),
              static_cast<int>(size.height));
    SIGMA_LOG("with X offset = %d , Y offset = %d\n", static_cast<int>(x), static_cast<int>(y));

    const android::sp<android::IBinder> token =
        SurfaceComposerClient::createDisplay(android::String8("venc-widi"), info->secure != 0);
    if (token == nullptr) {
        fprintf(stderr, "Unable to create Virtual Display");
        return -1;
    }
    SurfaceComposerClient::Transaction transaction;
    transaction.setDisplaySurface(token, producer);
    transaction.setDisplayProjection(token, android::ui::Rotation::Rotation0, shown, place);
    transaction.setDisplayLayerStack(token, 0);
    transaction.apply(false);
    *outDisplay = token;
    SIGMA_LOG("Done with display configuration \n");
    return 0;
}

void releaseVDS() {
    const std::lock_guard lock(virtualDisplayMutex);
    destroyVirtualDisplay();
}
