#include "Compositor.h"

#include "CompositorAccess.h"
#include "Journal.h"

namespace hostplatform {

namespace {

template <typename Value>
std::vector<Value> valuesOf(const std::map<int, Value>& map) {
    std::vector<Value> values;
    values.reserve(map.size());
    for (const auto& [id, value] : map) values.push_back(value);
    return values;
}

}  // namespace

Compositor& Compositor::instance() {
    static auto* const compositor = new Compositor;
    return *compositor;
}

void Compositor::setInternalDisplay(android::ui::Size resolution,
                                    android::ui::Rotation orientation) {
    const std::lock_guard lock(mMutex);
    mResolution = resolution;
    mOrientation = orientation;
}

std::vector<Layer> Compositor::layers() const {
    const std::lock_guard lock(mMutex);
    return valuesOf(mLayers);
}

std::vector<VirtualDisplay> Compositor::virtualDisplays() const {
    const std::lock_guard lock(mMutex);
    return valuesOf(mDisplays);
}

int Compositor::openConnections() const {
    const std::lock_guard lock(mMutex);
    return static_cast<int>(mConnections.size());
}

int Compositor::liveSurfaces() const {
    const std::lock_guard lock(mMutex);
    return mSurfaces;
}

int CompositorAccess::connect() {
    Compositor& compositor = Compositor::instance();
    const std::lock_guard lock(compositor.mMutex);
    const int id = compositor.mNextId++;
    compositor.mConnections.insert(id);
    return id;
}

void CompositorAccess::disconnect(int connection) {
    Compositor& compositor = Compositor::instance();
    std::vector<Layer> gone;
    {
        const std::lock_guard lock(compositor.mMutex);
        if (compositor.mConnections.erase(connection) == 0) return;
        for (auto layer = compositor.mLayers.begin(); layer != compositor.mLayers.end();) {
            if (layer->second.connection == connection) {
                gone.push_back(layer->second);
                layer = compositor.mLayers.erase(layer);
            } else {
                ++layer;
            }
        }
    }
    for (const Layer& layer : gone) {
        Journal::instance().addFormatted("compositor", "layer %d \"%s\" removed", layer.id,
                                         layer.name.c_str());
    }
}

int CompositorAccess::addLayer(Layer layer) {
    Compositor& compositor = Compositor::instance();
    {
        const std::lock_guard lock(compositor.mMutex);
        layer.id = compositor.mNextId++;
        compositor.mLayers[layer.id] = layer;
    }
    Journal::instance().addFormatted(
        "compositor", "layer %d \"%s\" %u x %u format %d flags 0x%x made", layer.id,
        layer.name.c_str(), layer.width, layer.height, layer.format, layer.flags);
    return layer.id;
}

void CompositorAccess::removeLayer(int id) {
    Compositor& compositor = Compositor::instance();
    {
        const std::lock_guard lock(compositor.mMutex);
        if (compositor.mLayers.erase(id) == 0) return;
    }
    Journal::instance().addFormatted("compositor", "layer %d removed", id);
}

int CompositorAccess::addVirtualDisplay(const std::string& name, bool secure) {
    Compositor& compositor = Compositor::instance();
    int id = 0;
    {
        const std::lock_guard lock(compositor.mMutex);
        id = compositor.mNextId++;
        VirtualDisplay& display = compositor.mDisplays[id];
        display.id = id;
        display.name = name;
        display.secure = secure;
    }
    Journal::instance().addFormatted("compositor", "display %d \"%s\"%s made", id, name.c_str(),
                                     secure ? " secure" : "");
    return id;
}

void CompositorAccess::removeVirtualDisplay(int id) {
    Compositor& compositor = Compositor::instance();
    // Taken out under the lock, destroyed after it: the last reference to a producer may run
    // foreign code.
    decltype(compositor.mDisplays)::node_type gone;
    {
        const std::lock_guard lock(compositor.mMutex);
        gone = compositor.mDisplays.extract(id);
    }
    Journal::instance().addFormatted("compositor", "display %d %s", id,
                                     gone.empty() ? "to be removed is not there" : "removed");
}

void CompositorAccess::countSurface(int change) {
    Compositor& compositor = Compositor::instance();
    const std::lock_guard lock(compositor.mMutex);
    compositor.mSurfaces += change;
}

std::pair<android::ui::Size, android::ui::Rotation> CompositorAccess::internalDisplay() {
    Compositor& compositor = Compositor::instance();
    const std::lock_guard lock(compositor.mMutex);
    return {compositor.mResolution, compositor.mOrientation};
}

}  // namespace hostplatform
