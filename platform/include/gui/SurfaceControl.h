#pragma once

#include "binder/IBinder.h"
#include "gui/Surface.h"
#include "utils/RefBase.h"

namespace android {

class SurfaceComposerClient;

// The owner's handle of one compositor layer; the layer goes with it.
class SurfaceControl : public virtual RefBase {
 public:
    ~SurfaceControl() override;

    // False when the layer handle or the compositor connection is missing.
    bool isValid() const { return mHandle != nullptr && mClient != nullptr; }

    // The layer's surface; null when the compositor gives none.
    sp<Surface> getSurface() const;

 private:
    friend class SurfaceComposerClient;
    SurfaceControl(sp<SurfaceComposerClient> client, sp<IBinder> handle, int layerId);

    const sp<SurfaceComposerClient> mClient;
    const sp<IBinder> mHandle;
    const int mLayerId;
};

}  // namespace android
