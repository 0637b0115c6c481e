#pragma once

#include "ui/Size.h"

namespace android {

// One of a display's modes.
struct DisplayConfig {
    ui::Size resolution;
};

}  // namespace android
