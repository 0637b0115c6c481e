// Intrusive reference counting: the base of every object that an android::sp holds.
#pragma once

#include <atomic>
#include <cstdint>

#include "utils/StrongPointer.h"

namespace android {

class RefBase {
 public:
    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

    // Any thread may call. `id` names the holder and is not used. The object deletes itself with
    // the last strong reference.
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    int32_t getStrongCount() const { return mStrong.load(std::memory_order_relaxed); }

 protected:
    RefBase() = default;
    virtual ~RefBase() = default;

 private:
    mutable std::atomic<int32_t> mStrong{0};
};

}  // namespace android
