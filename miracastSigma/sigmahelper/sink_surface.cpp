#include "sink_surface.h"

#include <atomic>
#include <new>
#include <utility>

#include "Undestroyed.h"
#include "gui/SurfaceComposerClient.h"
#include "sigma_log.h"
#include "thread_annotations.h"
#include "utils/Mutex.h"
#include "wfd/WiFiDisplayClient.h"

using android::SurfaceComposerClient;

namespace {

constexpr uint32_t kDefaultWidth = 800;
constexpr uint32_t kDefaultHeight = 480;
constexpr uint32_t kHeightWithoutDisplayInfo = 640;
constexpr int32_t kTopLayer = 0x7ffffffe;

// The destructor releases in the reverse order: the surface, its layer, the connection.
struct SinkSurfaceSet {
    android::sp<SurfaceComposerClient> client;
    android::sp<android::SurfaceControl> control;
    android::sp<android::Surface> surface;
};

Undestroyed<android::Mutex> sinkSurfaceLock;
Undestroyed<SinkSurfaceSet> gSinkSurfaceSet SIGMA_GUARDED_BY(*sinkSurfaceLock);
uint32_t setsMade SIGMA_GUARDED_BY(*sinkSurfaceLock) = 0;
// Number of the current set, 0 for none. Written with the lock held, read without it.
std::atomic<uint32_t> currentSet{0};

// Closes the set's connection. The set's destructor releases the objects.
void dispose(const SinkSurfaceSet& set) {
    if (set.client != nullptr) set.client->dispose();
}

SIGMA_REQUIRES(*sinkSurfaceLock) void releaseCurrentSet() {
    currentSet = 0;
    dispose(std::exchange(*gSinkSurfaceSet, {}));
}

struct LayerSize {
    uint32_t width = kDefaultWidth;
    uint32_t height = kHeightWithoutDisplayInfo;
};

LayerSize layerSizeFor(const android::sp<android::IBinder>& display) {
    LayerSize size;
    android::ui::DisplayState state;
    const android::status_t stateStatus = SurfaceComposerClient::getDisplayState(display, &state);
    android::DisplayConfig config;
    const android::status_t configStatus = SurfaceComposerClient::getActiveDisplayConfig(
        SurfaceComposerClient::getInternalDisplayToken(), &config);
    if (stateStatus != android::OK || configStatus != android::OK) return size;

    size.width = static_cast<uint32_t>(config.resolution.getWidth());
    size.height = static_cast<uint32_t>(config.resolution.getHeight());
    const bool turned = (static_cast<int>(state.orientation) | 2) == 3;  // 90 or 270 degrees
    if (turned) std::swap(size.width, size.height);
    if (size.width == 0) size.width = kDefaultWidth;
    if (size.height == 0) size.height = kDefaultHeight;
    return size;
}

// Fills the set; stops at the first failure.
void fill(SinkSurfaceSet& set) {
    set.client = new (std::nothrow) SurfaceComposerClient;
    if (set.client == nullptr || set.client->initCheck() != android::OK) return;
    SIGMA_LOG("Retrieving surfaceComposerClient \n");

    const android::sp<android::IBinder> display = SurfaceComposerClient::getInternalDisplayToken();
    if (display == nullptr) {
        SIGMA_LOG("Failed to find any physcial display!\n");
        return;
    }
    const LayerSize size = layerSizeFor(display);
    set.control = set.client->createSurface(android::String8("Wfd Sink Surface"), size.width,
                                            size.height, android::PIXEL_FORMAT_RGBA_8888, 0);
    if (set.control == nullptr || !set.control->isValid()) {
        SIGMA_LOG("Retrieving surface Control failed\n");
        return;
    }
    SurfaceComposerClient::Transaction()
        .setLayer(set.control, kTopLayer)
        .show(set.control)
        .apply(false);
    set.surface = set.control->getSurface();
}

// Makes a set the current one and moves the set before it to *earlier. Returns a strong reference
// to the new surface, because another thread may release the set before the surface is passed on.
android::sp<android::Surface> makeSinkSurface(SinkSurfaceSet* earlier) {
    SIGMA_LOG("Retrieving surface \n");
    SinkSurfaceSet set;
    const android::Mutex::Autolock lock(*sinkSurfaceLock);
    fill(set);
    *earlier = std::exchange(*gSinkSurfaceSet, set);
    currentSet = ++setsMade;
    return set.surface;
}

}  // namespace

android::Surface* getSurface() noexcept {
    SinkSurfaceSet earlier;
    android::Surface* const surface = makeSinkSurface(&earlier).get();
    dispose(earlier);
    return surface;
}

int giveSinkSurfaceTo(WiFiDisplayClient* client) {
    SinkSurfaceSet earlier;
    const android::sp<android::Surface> surface = makeSinkSurface(&earlier);
    int result = -1;
    if (client != nullptr) {
        result = client->setSurface(surface.get());
        SIGMA_LOG("setsurface returned %d", result);
    }
    // The client may have rendered into the earlier surface until now.
    dispose(earlier);
    return result;
}

int setWFDSurface() noexcept {
    WiFiDisplayClient* const client = gWFDClient;
    if (client == nullptr) {
        SIGMA_LOG("WFD Client is NULL\n");
        return -1;
    }
    return giveSinkSurfaceTo(client);
}

void deleteSurface_impl() noexcept {
    const android::Mutex::Autolock lock(*sinkSurfaceLock);
    releaseCurrentSet();
}

void deleteSurface() noexcept { deleteSurface_impl(); }

uint32_t sinkSurfaceNumber() { return currentSet; }

void deleteSinkSurface(uint32_t number) {
    const android::Mutex::Autolock lock(*sinkSurfaceLock);
    if (number != 0 && number == currentSet) releaseCurrentSet();
}
