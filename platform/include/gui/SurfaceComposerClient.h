// A connection to the surface compositor: layers, displays, and the transactions that arrange them.
#pragma once

#include <cstdint>
#include <memory>

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

    // OK when the connection is usable.
    status_t initCheck() const;

    // Closes the connection; its layers go.
    void dispose();

    // The built-in display, null when the device has none.
    static sp<IBinder> getInternalDisplayToken();
    static status_t getDisplayState(const sp<IBinder>& display, ui::DisplayState* state);
    static status_t getActiveDisplayConfig(const sp<IBinder>& display, DisplayConfig* config);

    // A new virtual display; null when it is refused.
    static sp<IBinder> createDisplay(const String8& displayName, bool secure);
    static void destroyDisplay(const sp<IBinder>& display);

    // A new layer of w by h pixels; null when it is refused.
    sp<SurfaceControl> createSurface(const String8& name, uint32_t w, uint32_t h,
                                     PixelFormat format, uint32_t flags = 0,
                                     SurfaceControl* parent = nullptr,
                                     LayerMetadata metadata = LayerMetadata(),
                                     uint32_t* outTransformHint = nullptr);

    // Changes that take effect together, with apply(); without it they are dropped.
    class Transaction {
     public:
        Transaction();
        ~Transaction();

        Transaction& setLayer(const sp<SurfaceControl>& control, int32_t z);
        Transaction& show(const sp<SurfaceControl>& control);

        status_t setDisplaySurface(const sp<IBinder>& token,
                                   const sp<IGraphicBufferProducer>& bufferProducer);
        // Shows layerStackRect of the display's layer stack at displayRect of the display.
        void setDisplayProjection(const sp<IBinder>& token, ui::Rotation orientation,
                                  const Rect& layerStackRect, const Rect& displayRect);
        void setDisplayLayerStack(const sp<IBinder>& token, uint32_t layerStack);

        status_t apply(bool synchronous = false);

     private:
        struct Changes;
        std::unique_ptr<Changes> mChanges;
    };

 private:
    const int mConnectionId;
};

}  // namespace android
