// android::sp, the platform's strong reference to a reference-counted object.
#pragma once

#include <cstddef>
#include <utility>

namespace android {

template <typename T>
class sp {
 public:
    sp() = default;
    sp(T* other) : mPtr(other) {  // NOLINT(google-explicit-constructor): as in the platform
        if (mPtr != nullptr) mPtr->incStrong(this);
    }
    sp(const sp& other) : sp(other.mPtr) {}
    sp(sp&& other) noexcept : mPtr(std::exchange(other.mPtr, nullptr)) {}
    template <typename U>
    sp(const sp<U>& other) : sp(static_cast<T*>(other.get())) {}  // NOLINT: as above
    ~sp() {
        if (mPtr != nullptr) mPtr->decStrong(this);
    }

    sp& operator=(sp other) noexcept {
        std::swap(mPtr, other.mPtr);
        return *this;
    }

    void clear() { *this = sp(); }
    T* get() const { return mPtr; }
    T& operator*() const { return *mPtr; }
    T* operator->() const { return mPtr; }

    friend bool operator==(const sp& a, const sp& b) { return a.mPtr == b.mPtr; }
    friend bool operator!=(const sp& a, const sp& b) { return a.mPtr != b.mPtr; }
    friend bool operator==(const sp& a, std::nullptr_t) { return a.mPtr == nullptr; }
    friend bool operator!=(const sp& a, std::nullptr_t) { return a.mPtr != nullptr; }

 private:
    T* mPtr = nullptr;
};

}  // namespace android
