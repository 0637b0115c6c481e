#pragma once

#include "utils/RefBase.h"

namespace android {

// The filling end of a buffer queue. The library only passes references to it on.
class IGraphicBufferProducer : public virtual RefBase {};

}  // namespace android
