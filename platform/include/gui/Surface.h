#pragma once

#include "utils/RefBase.h"

namespace android {

// The producer side of a layer, into which a decoder renders. Only a SurfaceControl makes it.
class Surface : public virtual RefBase {
 public:
    // The compositor's number of the layer that this surface fills.
    int layerId() const { return mLayerId; }
    ~Surface() override;

 private:
    friend class SurfaceControl;
    explicit Surface(int layerId);

    const int mLayerId;
};

}  // namespace android
