#pragma once

namespace android::ui {

enum class Rotation { Rotation0 = 0, Rotation90 = 1, Rotation180 = 2, Rotation270 = 3 };

}  // namespace android::ui
