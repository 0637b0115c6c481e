#pragma once

#include "utils/RefBase.h"

namespace android {

// A remote object. The compositor uses these objects as tokens for displays and layers.
class IBinder : public virtual RefBase {};

}  // namespace android
