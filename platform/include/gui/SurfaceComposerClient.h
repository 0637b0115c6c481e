// A connection to the surface compositor: layers, displays, and the transactions that arrange them.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "binder/IBinder.h"
#include "gui/IGraphicBufferProducer.h"
#include "gui/LayerMetadata.h"
#include "gui/SurfaceControl.h"
#include "ui/DisplayConfig.h"
#include "ui/DisplayState.h"
#include "ui/PixelFormat.h"
#include "ui/Rect.h"
#include "ui/Rotation.h"
#include "utils/Errors.h"
#include "utils/String8.h"

namespace android {

class SurfaceComposerClient : public virtual RefBase {
 public:
    SurfaceComposerClient();
    ~SurfaceComposerClient() override;

    // Returns OK if the connection is usable.
    status_t initCheck() const;

    // Closes the connection and removes its layers.
    void dispose();

    // Returns the built-in display; null if the device has none.
    static sp<IBinder> getInternalDisplayToken();
    static status_t getDisplayState(const sp<IBinder>& display, ui::DisplayState* state);
    static status_t getActiveDisplayConfig(const sp<IBinder>& display, DisplayConfig* config);

    // Makes a virtual display; null if the compositor refuses it.
    static sp<IBinder> createDisplay(const String8& displayName, bool secure);
    static void destroyDisplay(const sp<IBinder>& display);

    // Makes a layer of w by h pixels; null if the compositor refuses it.
    sp<SurfaceControl> createSurface(const String8& name, uint32_t w, uint32_t h,
                                     PixelFormat format, uint32_t flags = 0,
                                     SurfaceControl* parent = nullptr,
                                     LayerMetadata metadata = LayerMetadata(),
                                     uint32_t* outTransformHint = nullptr);

    // Collects changes, which take effect together in apply(). Without apply() they are dropped.
    class Transaction {
     public:
        Transaction& setLayer(const sp<SurfaceControl>& control, int32_t z);
        Transaction& show(const sp<SurfaceControl>& control);

        status_t setDisplaySurface(const sp<IBinder>& token,
                                   const sp<IGraphicBufferProducer>& bufferProducer);
        // Shows the part layerStackRect of the layer stack in the part displayRect of the display.
        void setDisplayProjection(const sp<IBinder>& token, ui::Rotation orientation,
                                  const Rect& layerStackRect, const Rect& displayRect);
        void setDisplayLayerStack(const sp<IBinder>& token, uint32_t layerStack);

        status_t apply(bool synchronous = false);

     private:
        std::vector<std::function<void()>> mChanges;
    };

 private:
    const int mConnectionId;
};

}  // namespace android
