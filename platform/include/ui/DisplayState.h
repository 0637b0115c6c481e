#pragma once

#include <cstdint>

#include "ui/Rotation.h"
#include "ui/Size.h"

namespace android::ui {

// The current state of a display.
struct DisplayState {
    uint32_t layerStack = 0;
    Rotation orientation = Rotation::Rotation0;
    Size viewport;
};

}  // namespace android::ui
