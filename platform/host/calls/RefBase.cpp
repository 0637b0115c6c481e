#include "utils/RefBase.h"

namespace android {

void RefBase::incStrong(const void*) const { mStrong.fetch_add(1, std::memory_order_relaxed); }

void RefBase::decStrong(const void*) const {
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

}  // namespace android
