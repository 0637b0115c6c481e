#pragma once

#include "utils/RefBase.h"

namespace android {

// A remote object. The compositor names displays and layers by such tokens.
class IBinder : public virtual RefBase {};

}  // namespace android
