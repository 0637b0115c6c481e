#include "sink_surface.h"

#include <cstdint>
#include <mutex>
#include <utility>

#include "gui/SurfaceComposerClient.h"
#include "sigma_log.h"
#include "wfd/WiFiDisplayClient.h"

using android::SurfaceComposerClient;

namespace {

constexpr uint32_t kDefaultWidth = 800;
constexpr uint32_t kDefaultHeight = 480;
constexpr uint32_t kHeightWithoutDisplayInfo = 640;
constexpr int32_t kTopLayer = 0x7ffffffe;

// Members go in the reverse order: first the surface, then its layer, then the connection.
struct SinkSurfaceSet {
    android::sp<SurfaceComposerClient> client;
    android::sp<android::SurfaceControl> control;
    android::sp<android::Surface> surface;
};

std::mutex sinkSurfaceMutex;
// Guarded by sinkSurfaceMutex. A plain pointer, so that the process's end does not take the surface
// from under a client that still renders.
SinkSurfaceSet* gSinkSurfaceSet = nullptr;

void releaseSet() {
    if (gSinkSurfaceSet == nullptr) return;
    if (gSinkSurfaceSet->client != nullptr) gSinkSurfaceSet->client->dispose();
    delete gSinkSurfaceSet;
    gSinkSurfaceSet = nullptr;
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

// A strong reference: another thread may release the set before the surface is passed on.
android::sp<android::Surface> makeSinkSurface() {
    SIGMA_LOG("Retrieving surface \n");
    const std::lock_guard lock(sinkSurfaceMutex);
    releaseSet();
    gSinkSurfaceSet = new SinkSurfaceSet;
    SinkSurfaceSet& set = *gSinkSurfaceSet;
    set.client = new SurfaceComposerClient;
    if (set.client->initCheck() != android::OK) return nullptr;
    SIGMA_LOG("Retrieving surfaceComposerClient \n");

    const android::sp<android::IBinder> display = SurfaceComposerClient::getInternalDisplayToken();
    if (display == nullptr) {
        SIGMA_LOG("Failed to find any physcial display!\n");
        return nullptr;
    }
    const LayerSize size = layerSizeFor(display);
    set.control = set.client->createSurface(android::String8("Wfd Sink Surface"), size.width,
                                            size.height, android::PIXEL_FORMAT_RGBA_8888, 0);
    if (set.control == nullptr || !set.control->isValid()) {
        SIGMA_LOG("Retrieving surface Control failed\n");
        return nullptr;
    }
    SurfaceComposerClient::Transaction()
        .setLayer(set.control, kTopLayer)
        .show(set.control)
        .apply(false);
    set.surface = set.control->getSurface();
    return set.surface;
}

}  // namespace

android::Surface* getSurface() { return makeSinkSurface().get(); }

int giveSinkSurfaceTo(WiFiDisplayClient* client) {
    const android::sp<android::Surface> surface = makeSinkSurface();
    if (client == nullptr) return -1;
    const int result = client->setSurface(surface.get());
    SIGMA_LOG("setsurface returned %d", result);
    return result;
}

int setWFDSurface() {
    WiFiDisplayClient* const client = gWFDClient;
    if (client == nullptr) {
        SIGMA_LOG("WFD Client is NULL\n");
        return -1;
    }
    return giveSinkSurfaceTo(client);
}

void deleteSurface_impl() {
    const std::lock_guard lock(sinkSurfaceMutex);
    releaseSet();
}

void deleteSurface() { deleteSurface_impl(); }
