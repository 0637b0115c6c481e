// The classes through which a program uses the compositor.
#include "gui/SurfaceComposerClient.h"

#include <functional>
#include <utility>
#include <vector>

#include "host/SimulatedDevice.h"
#include "host/text_format.h"

using namespace hostplatform;

namespace android {

namespace {

constexpr int kInternalDisplay = 0;

class Token : public IBinder {
 public:
    explicit Token(int id) : mId(id) {}
    const int mId;
};

// Returns the number of a token of this compositor; -1 for any other or null.
int idOf(const sp<IBinder>& token) {
    const auto* const known = dynamic_cast<const Token*>(token.get());
    return known == nullptr ? -1 : known->mId;
}

Compositor& compositor() { return device().compositor(); }

void journal(const std::string& text) { device().journal().add("compositor", text); }

int fault(Fault fault) { return device().faults().next(fault); }

void disconnect(int connection) {
    if (!compositor().remove<Connection>(connection)) return;
    for (const Layer& layer : compositor().layers()) {
        if (layer.connection == connection && compositor().remove<Layer>(layer.id)) {
            journal(format("layer %d \"%s\" removed", layer.id, layer.name.c_str()));
        }
    }
}

// Makes a change of a layer or display for Transaction::apply; `description` describes it in the
// journal.
template <typename Object>
std::function<void()> changing(const sp<IBinder>& token, std::function<void(Object&)> change,
                               const std::string& description) {
    const char* const kind = std::is_same_v<Object, Layer> ? "layer" : "display";
    return [id = idOf(token), change = std::move(change), text = " " + description, kind] {
        if (compositor().change(id, change)) journal(format("%s %d", kind, id) + text);
    };
}

}  // namespace

Surface::Surface(int layerId) : mLayerId(layerId) { compositor().countSurface(1); }

Surface::~Surface() { compositor().countSurface(-1); }

SurfaceControl::SurfaceControl(sp<SurfaceComposerClient> client, sp<IBinder> handle, int layerId)
    : mClient(std::move(client)), mHandle(std::move(handle)), mLayerId(layerId) {}

SurfaceControl::~SurfaceControl() {
    if (compositor().remove<Layer>(mLayerId)) journal(format("layer %d removed", mLayerId));
}

sp<Surface> SurfaceControl::getSurface() const {
    return fault(Fault::LayerSurface) != 0 ? nullptr : new Surface(mLayerId);
}

SurfaceComposerClient::SurfaceComposerClient() : mConnectionId(compositor().add(Connection{})) {}

SurfaceComposerClient::~SurfaceComposerClient() { disconnect(mConnectionId); }

status_t SurfaceComposerClient::initCheck() const { return fault(Fault::CompositorConnection); }

void SurfaceComposerClient::dispose() {
    journal(format("connection %d disposed", mConnectionId));
    disconnect(mConnectionId);
}

sp<IBinder> SurfaceComposerClient::getInternalDisplayToken() {
    return fault(Fault::NoInternalDisplay) != 0 ? nullptr : new Token(kInternalDisplay);
}

status_t SurfaceComposerClient::getDisplayState(const sp<IBinder>& display,
                                                ui::DisplayState* state) {
    if (idOf(display) != kInternalDisplay) return NAME_NOT_FOUND;
    if (const int status = fault(Fault::DisplayStateQuery)) return status;
    state->layerStack = 0;
    std::tie(state->viewport, state->orientation) = compositor().internalDisplay();
    return OK;
}

status_t SurfaceComposerClient::getActiveDisplayConfig(const sp<IBinder>& display,
                                                       DisplayConfig* config) {
    if (idOf(display) != kInternalDisplay) return NAME_NOT_FOUND;
    if (const int status = fault(Fault::DisplayConfigQuery)) return status;
    config->resolution = compositor().internalDisplay().first;
    return OK;
}

sp<IBinder> SurfaceComposerClient::createDisplay(const String8& displayName, bool secure) {
    if (fault(Fault::VirtualDisplayCreation) != 0) return nullptr;
    const int id = compositor().add(VirtualDisplay{0, displayName.string(), secure});
    journal(format("display %d \"%s\"%s made", id, displayName.string(), secure ? " secure" : ""));
    return new Token(id);
}

void SurfaceComposerClient::destroyDisplay(const sp<IBinder>& display) {
    const bool removed = compositor().remove<VirtualDisplay>(idOf(display)).has_value();
    journal(
        format("display %d %s", idOf(display), removed ? "removed" : "to be removed is not there"));
}

sp<SurfaceControl> SurfaceComposerClient::createSurface(const String8& name, uint32_t w, uint32_t h,
                                                        PixelFormat pixels, uint32_t flags,
                                                        SurfaceControl* /*parent*/,
                                                        LayerMetadata /*metadata*/,
                                                        uint32_t* /*outTransformHint*/) {
    if (fault(Fault::LayerCreation) != 0) return nullptr;
    const int id =
        compositor().add(Layer{0, mConnectionId, name.string(), w, h, pixels, flags, 0, false});
    journal(format("layer %d \"%s\" %u x %u format %d flags 0x%x made", id, name.string(), w, h,
                   pixels, flags));
    const bool hasHandle = fault(Fault::LayerHandle) == 0;
    return new SurfaceControl(this, hasHandle ? new Token(id) : nullptr, id);
}

using Transaction = SurfaceComposerClient::Transaction;

Transaction& Transaction::setLayer(const sp<SurfaceControl>& control, int32_t z) {
    mChanges.push_back(changing<Layer>(
        control->mHandle, [z](Layer& layer) { layer.z = z; }, format("at z %d", z)));
    return *this;
}

Transaction& Transaction::show(const sp<SurfaceControl>& control) {
    mChanges.push_back(changing<Layer>(
        control->mHandle, [](Layer& layer) { layer.visible = true; }, "shown"));
    return *this;
}

status_t Transaction::setDisplaySurface(const sp<IBinder>& token,
                                        const sp<IGraphicBufferProducer>& bufferProducer) {
    mChanges.push_back(changing<VirtualDisplay>(
        token, [bufferProducer](VirtualDisplay& display) { display.producer = bufferProducer; },
        format("fills producer %p", static_cast<const void*>(bufferProducer.get()))));
    return OK;
}

void Transaction::setDisplayProjection(const sp<IBinder>& token, ui::Rotation orientation,
                                       const Rect& from, const Rect& to) {
    const auto change = [=](VirtualDisplay& display) {
        display.rotation = orientation;
        display.source = from;
        display.destination = to;
    };
    mChanges.push_back(changing<VirtualDisplay>(
        token, change,
        format("rotation %d shows [%d %d %d %d] at [%d %d %d %d]", static_cast<int>(orientation),
               from.left, from.top, from.right, from.bottom, to.left, to.top, to.right,
               to.bottom)));
}

void Transaction::setDisplayLayerStack(const sp<IBinder>& token, uint32_t layerStack) {
    mChanges.push_back(changing<VirtualDisplay>(
        token, [layerStack](VirtualDisplay& display) { display.layerStack = layerStack; },
        format("mirrors layer stack %u", layerStack)));
}

status_t Transaction::apply(bool synchronous) {
    journal(format("transaction of %zu changes applied%s", mChanges.size(),
                   synchronous ? " synchronously" : ""));
    for (const auto& change : mChanges) change();
    mChanges.clear();
    return OK;
}

}  // namespace android
