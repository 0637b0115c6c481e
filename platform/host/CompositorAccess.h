// The compositor as its clients' classes see it; Compositor.h is what tests see.
#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "Compositor.h"

namespace hostplatform {

class CompositorAccess {
 public:
    static int connect();
    static void disconnect(int connection);

    static int addLayer(Layer layer);
    static void removeLayer(int id);
    static int addVirtualDisplay(const std::string& name, bool secure);
    static void removeVirtualDisplay(int id);
    static void countSurface(int change);

    static std::pair<android::ui::Size, android::ui::Rotation> internalDisplay();

    // Changes a layer or display under the compositor's lock; one that is gone is left out. Returns
    // whether it was there.
    template <typename Change>
    static bool changeLayer(int id, Change change) {
        Compositor& compositor = Compositor::instance();
        const std::lock_guard lock(compositor.mMutex);
        const auto found = compositor.mLayers.find(id);
        if (found == compositor.mLayers.end()) return false;
        change(found->second);
        return true;
    }
    template <typename Change>
    static bool changeVirtualDisplay(int id, Change change) {
        Compositor& compositor = Compositor::instance();
        const std::lock_guard lock(compositor.mMutex);
        const auto found = compositor.mDisplays.find(id);
        if (found == compositor.mDisplays.end()) return false;
        change(found->second);
        return true;
    }
};

}  // namespace hostplatform
