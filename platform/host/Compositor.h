// The simulated surface compositor: what it was given, to be asked for. All functions are callable
// on any thread.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "binder/IBinder.h"
#include "gui/IGraphicBufferProducer.h"
#include "ui/Rect.h"
#include "ui/Rotation.h"
#include "ui/Size.h"

namespace hostplatform {

struct Layer {
    int id = 0;
    int connection = 0;
    std::string name;
    uint32_t width = 0;
    uint32_t height = 0;
    int32_t format = 0;
    uint32_t flags = 0;
    int32_t z = 0;
    bool visible = false;
};

struct VirtualDisplay {
    int id = 0;
    std::string name;
    bool secure = false;
    android::sp<android::IGraphicBufferProducer> producer;  // where its picture goes
    std::optional<uint32_t> layerStack;                     // which picture it shows
    android::ui::Rotation rotation = android::ui::Rotation::Rotation0;
    android::Rect source;       // this part of the layer stack ...
    android::Rect destination;  // ... is shown here on the display
};

class Compositor {
 public:
    // The one compositor; never destroyed.
    static Compositor& instance();

    // The built-in display's active mode and orientation (at first 1080 x 1920, not rotated).
    void setInternalDisplay(android::ui::Size resolution, android::ui::Rotation orientation);

    std::vector<Layer> layers() const;
    std::vector<VirtualDisplay> virtualDisplays() const;

    // Connections neither disposed of nor released, and surfaces that somebody still holds.
    int openConnections() const;
    int liveSurfaces() const;

 private:
    friend class CompositorAccess;
    Compositor() = default;

    mutable std::mutex mMutex;  // guards everything below
    android::ui::Size mResolution{1080, 1920};
    android::ui::Rotation mOrientation = android::ui::Rotation::Rotation0;
    std::map<int, Layer> mLayers;
    std::map<int, VirtualDisplay> mDisplays;
    std::set<int> mConnections;
    int mSurfaces = 0;
    int mNextId = 1;
};

}  // namespace hostplatform
