#pragma once

#include <cstdint>

namespace android::ui {

// A size in pixels; a default-constructed one is INVALID.
struct Size {
    Size() = default;
    Size(int32_t w, int32_t h) : width(w), height(h) {}
    int32_t getWidth() const { return width; }
    int32_t getHeight() const { return height; }

    static const Size INVALID;

    int32_t width = -1;
    int32_t height = -1;
};

inline const Size Size::INVALID{-1, -1};

}  // namespace android::ui
