#pragma once

namespace android {

struct LayerMetadata {};

}  // namespace android
