// The compositor's client classes, on the simulated compositor.
#include "gui/SurfaceComposerClient.h"

#include <functional>
#include <utility>
#include <vector>

#include "CompositorAccess.h"
#include "Faults.h"
#include "Journal.h"

using namespace hostplatform;

namespace android {

namespace {

constexpr int kInternalDisplay = 0;

class Token : public IBinder {
 public:
    explicit Token(int id) : mId(id) {}
    const int mId;
};

// The number behind a token of this compositor; -1 for null.
int idOf(const sp<IBinder>& token) {
    const auto* const known = dynamic_cast<const Token*>(token.get());
    return known == nullptr ? -1 : known->mId;
}

}  // namespace

Surface::Surface(int layerId) : mLayerId(layerId) { CompositorAccess::countSurface(1); }

Surface::~Surface() { CompositorAccess::countSurface(-1); }

SurfaceControl::SurfaceControl(sp<SurfaceComposerClient> client, sp<IBinder> handle, int layerId)
    : mClient(std::move(client)), mHandle(std::move(handle)), mLayerId(layerId) {}

SurfaceControl::~SurfaceControl() { CompositorAccess::removeLayer(mLayerId); }

sp<Surface> SurfaceControl::getSurface() const {
    if (faultStatus(Fault::LayerSurface) != 0) return nullptr;
    return new Surface(mLayerId);
}

SurfaceComposerClient::SurfaceComposerClient() : mConnectionId(CompositorAccess::connect()) {}

SurfaceComposerClient::~SurfaceComposerClient() { CompositorAccess::disconnect(mConnectionId); }

status_t SurfaceComposerClient::initCheck() const {
    return faultStatus(Fault::CompositorConnection);
}

void SurfaceComposerClient::dispose() {
    Journal::instance().addFormatted("compositor", "connection %d disposed", mConnectionId);
    CompositorAccess::disconnect(mConnectionId);
}

sp<IBinder> SurfaceComposerClient::getInternalDisplayToken() {
    if (faultStatus(Fault::NoInternalDisplay) != 0) return nullptr;
    return new Token(kInternalDisplay);
}

status_t SurfaceComposerClient::getDisplayState(const sp<IBinder>& display,
                                                ui::DisplayState* state) {
    if (idOf(display) != kInternalDisplay) return NAME_NOT_FOUND;
    if (const int status = faultStatus(Fault::DisplayStateQuery)) return status;
    const auto [size, orientation] = CompositorAccess::internalDisplay();
    state->layerStack = 0;
    state->orientation = orientation;
    state->viewport = size;
    return OK;
}

status_t SurfaceComposerClient::getActiveDisplayConfig(const sp<IBinder>& display,
                                                       DisplayConfig* config) {
    if (idOf(display) != kInternalDisplay) return NAME_NOT_FOUND;
    if (const int status = faultStatus(Fault::DisplayConfigQuery)) return status;
    config->resolution = CompositorAccess::internalDisplay().first;
    return OK;
}

sp<IBinder> SurfaceComposerClient::createDisplay(const String8& displayName, bool secure) {
    if (faultStatus(Fault::VirtualDisplayCreation) != 0) return nullptr;
    return new Token(CompositorAccess::addVirtualDisplay(displayName.string(), secure));
}

void SurfaceComposerClient::destroyDisplay(const sp<IBinder>& display) {
    CompositorAccess::removeVirtualDisplay(idOf(display));
}

sp<SurfaceControl> SurfaceComposerClient::createSurface(const String8& name, uint32_t w, uint32_t h,
                                                        PixelFormat format, uint32_t flags,
                                                        SurfaceControl* /*parent*/,
                                                        LayerMetadata /*metadata*/,
                                                        uint32_t* /*outTransformHint*/) {
    if (faultStatus(Fault::LayerCreation) != 0) return nullptr;
    Layer layer;
    layer.connection = mConnectionId;
    layer.name = name.string();
    layer.width = w;
    layer.height = h;
    layer.format = format;
    layer.flags = flags;
    const int id = CompositorAccess::addLayer(std::move(layer));
    sp<IBinder> handle;
    if (faultStatus(Fault::LayerHandle) == 0) handle = new Token(id);
    return new SurfaceControl(this, handle, id);
}

struct SurfaceComposerClient::Transaction::Changes {
    std::vector<std::function<void()>> list;
};

SurfaceComposerClient::Transaction::Transaction() : mChanges(std::make_unique<Changes>()) {}

SurfaceComposerClient::Transaction::~Transaction() = default;

SurfaceComposerClient::Transaction& SurfaceComposerClient::Transaction::setLayer(
    const sp<SurfaceControl>& control, int32_t z) {
    mChanges->list.emplace_back([id = idOf(control->mHandle), z] {
        if (CompositorAccess::changeLayer(id, [z](Layer& layer) { layer.z = z; })) {
            Journal::instance().addFormatted("compositor", "layer %d at z %d", id, z);
        }
    });
    return *this;
}

SurfaceComposerClient::Transaction& SurfaceComposerClient::Transaction::show(
    const sp<SurfaceControl>& control) {
    mChanges->list.emplace_back([id = idOf(control->mHandle)] {
        if (CompositorAccess::changeLayer(id, [](Layer& layer) { layer.visible = true; })) {
            Journal::instance().addFormatted("compositor", "layer %d shown", id);
        }
    });
    return *this;
}

status_t SurfaceComposerClient::Transaction::setDisplaySurface(
    const sp<IBinder>& token, const sp<IGraphicBufferProducer>& bufferProducer) {
    mChanges->list.emplace_back([id = idOf(token), bufferProducer] {
        if (CompositorAccess::changeVirtualDisplay(
                id, [&](VirtualDisplay& display) { display.producer = bufferProducer; })) {
            Journal::instance().addFormatted("compositor", "display %d fills producer %p", id,
                                             static_cast<const void*>(bufferProducer.get()));
        }
    });
    return OK;
}

void SurfaceComposerClient::Transaction::setDisplayProjection(const sp<IBinder>& token,
                                                              ui::Rotation orientation,
                                                              const Rect& layerStackRect,
                                                              const Rect& displayRect) {
    mChanges->list.emplace_back(
        [id = idOf(token), orientation, from = layerStackRect, to = displayRect] {
            if (CompositorAccess::changeVirtualDisplay(id, [&](VirtualDisplay& display) {
                    display.rotation = orientation;
                    display.source = from;
                    display.destination = to;
                })) {
                Journal::instance().addFormatted(
                    "compositor", "display %d rotation %d shows [%d %d %d %d] at [%d %d %d %d]", id,
                    static_cast<int>(orientation), from.left, from.top, from.right, from.bottom,
                    to.left, to.top, to.right, to.bottom);
            }
        });
}

void SurfaceComposerClient::Transaction::setDisplayLayerStack(const sp<IBinder>& token,
                                                              uint32_t layerStack) {
    mChanges->list.emplace_back([id = idOf(token), layerStack] {
        if (CompositorAccess::changeVirtualDisplay(
                id, [&](VirtualDisplay& display) { display.layerStack = layerStack; })) {
            Journal::instance().addFormatted("compositor", "display %d mirrors layer stack %u", id,
                                             layerStack);
        }
    });
}

status_t SurfaceComposerClient::Transaction::apply(bool synchronous) {
    Journal::instance().addFormatted("compositor", "transaction of %zu changes applied%s",
                                     mChanges->list.size(), synchronous ? " synchronously" : "");
    for (const auto& change : mChanges->list) change();
    mChanges->list.clear();
    return OK;
}

}  // namespace android
