#pragma once

#include "binder/IBinder.h"
#include "gui/Surface.h"
#include "utils/RefBase.h"

namespace android {

class SurfaceComposerClient;

// The owner's handle of one compositor layer; its destruction removes the layer.
class SurfaceControl : public virtual RefBase {
 public:
    ~SurfaceControl() override;

    // False when the layer handle or the compositor connection is missing.
    bool isValid() const { return mHandle != nullptr && mClient != nullptr; }

    // Returns the layer's surface; null if the compositor gives none.
    sp<Surface> getSurface() const;

 private:
    friend class SurfaceComposerClient;
    SurfaceControl(sp<SurfaceComposerClient> client, sp<IBinder> handle, int layerId);

    const sp<SurfaceComposerClient> mClient;
    const sp<IBinder> mHandle;
    const int mLayerId;
};

}  // namespace android
