#pragma once

#include "utils/RefBase.h"

namespace android {

// The filling end of a buffer queue; the library only passes references to it on.
class IGraphicBufferProducer : public virtual RefBase {};

}  // namespace android
