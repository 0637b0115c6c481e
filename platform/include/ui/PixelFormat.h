#pragma once

#include <cstdint>

namespace android {

typedef int32_t PixelFormat;

enum : PixelFormat { PIXEL_FORMAT_RGBA_8888 = 1 };  // 4 x 8-bit RGBA

}  // namespace android
