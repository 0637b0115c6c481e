#include "virtual_display.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

#include "Undestroyed.h"
#include "gui/SurfaceComposerClient.h"
#include "sigma_log.h"
#include "thread_annotations.h"
#include "utils/Mutex.h"

using android::SurfaceComposerClient;

namespace {

// Guards the display: one session can end while the next begins, each on an event thread of its
// own.
Undestroyed<android::Mutex> virtualDisplayLock;
Undestroyed<android::sp<android::IBinder>> gVDSDisplay SIGMA_GUARDED_BY(*virtualDisplayLock);
Undestroyed<android::sp<android::IGraphicBufferProducer>> gVDSProducer
    SIGMA_GUARDED_BY(*virtualDisplayLock);

struct ReleaseAtExit {
    ~ReleaseAtExit() {
        // Do not wait for the lock: a compositor call may hang while it is held.
        if (virtualDisplayLock->tryLock() != 0) return;
        gVDSProducer->clear();
        gVDSDisplay->clear();
        virtualDisplayLock->unlock();
    }
} releaseAtExit;

SIGMA_REQUIRES(*virtualDisplayLock) void destroyVirtualDisplay() {
    if (*gVDSDisplay == nullptr) return;
    gVDSProducer->clear();
    SurfaceComposerClient::destroyDisplay(*gVDSDisplay);
    SIGMA_LOG("Done with display destruction");
    gVDSDisplay->clear();
}

// Truncates toward zero and saturates, as the device's processor does.
uint32_t truncated(float value) {
    if (!(value > 0.0F)) return 0;
    if (value >= 4294967296.0F) return std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(value);
}

struct PictureSize {
    uint32_t width;
    uint32_t height;
};

// The largest size with the source's aspect ratio that fits into the stream's picture. Compute in
// single precision: a wider type rounds some sizes to another pixel.
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

int createVDS(void* info) noexcept {
    auto* const stream = static_cast<mmSessionInfo*>(info);
    if (stream == nullptr || stream->producer == nullptr) {
        SIGMA_LOG("\n Invalid argument passed to createVDS!");
        return -1;
    }
    SIGMA_LOG("Source module provided surface\n");
    const android::Mutex::Autolock lock(*virtualDisplayLock);
    const android::sp<android::IGraphicBufferProducer> producer = stream->producer;
    destroyVirtualDisplay();
    *gVDSProducer = producer;

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
    const int result =
        configureVirtualDisplay(display, state, *gVDSProducer, &*gVDSDisplay, stream);
    if (result != 0) SIGMA_LOG("Can't configure VDS err = %d", result);
    return result;
}

int configureVirtualDisplay(const android::sp<android::IBinder>& display,
                            const android::ui::DisplayState& state,
                            const android::sp<android::IGraphicBufferProducer>& producer,
                            android::sp<android::IBinder>* outDisplay,
                            mmSessionInfo* info) noexcept {
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
    const android::Rect visible(0, 0, static_cast<int32_t>(std::min(source.width, kLargest)),
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
    transaction.setDisplayProjection(token, android::ui::Rotation::Rotation0, visible, place);
    transaction.setDisplayLayerStack(token, 0);
    transaction.apply(false);
    *outDisplay = token;
    SIGMA_LOG("Done with display configuration \n");
    return 0;
}

void releaseVDS() noexcept {
    const android::Mutex::Autolock lock(*virtualDisplayLock);
    destroyVirtualDisplay();
}
