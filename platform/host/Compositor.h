// The state of the simulated surface compositor. calls/SurfaceComposerClient.cpp changes it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "gui/IGraphicBufferProducer.h"
#include "host/Mutex.h"
#include "ui/Rect.h"
#include "ui/Rotation.h"
#include "ui/Size.h"

namespace hostplatform {

// A program's connection to the compositor.
struct Connection {
    int id = 0;
};

struct Layer {
    int id = 0;
    int connection = 0;  // whose end removes the layer
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
    android::sp<android::IGraphicBufferProducer> producer = {};  // receives its picture
    std::optional<uint32_t> layerStack = {};                     // the layer stack that it shows
    android::ui::Rotation rotation = android::ui::Rotation::Rotation0;
    android::Rect source = {};       // the part of the layer stack that is shown
    android::Rect destination = {};  // the part of the display that shows it
};

// Any thread may call.
class Compositor {
 public:
    // The built-in display's active mode and orientation (initially 1080 x 1920, not rotated).
    using InternalDisplay = std::pair<android::ui::Size, android::ui::Rotation>;
    void setInternalDisplay(android::ui::Size resolution, android::ui::Rotation orientation) {
        const Lock lock(mMutex);
        mInternalDisplay = {resolution, orientation};
    }
    InternalDisplay internalDisplay() const {
        const Lock lock(mMutex);
        return mInternalDisplay;
    }
    void reset() { setInternalDisplay({1080, 1920}, android::ui::Rotation::Rotation0); }

    std::vector<Layer> layers() const { return all<Layer>(); }
    std::vector<VirtualDisplay> virtualDisplays() const { return all<VirtualDisplay>(); }
    // The number of connections that are neither disposed nor released, and of surfaces that are
    // still referenced.
    int openConnections() const { return static_cast<int>(all<Connection>().size()); }
    int liveSurfaces() const { return mSurfaces; }

    // An Object is a Connection, a Layer or a VirtualDisplay. add() returns the object's number,
    // which is never used again.
    template <typename Object>
    int add(Object object) {
        const Lock lock(mMutex);
        object.id = mNextId++;
        return table<Object>().emplace(object.id, std::move(object)).first->first;
    }
    // Returns the removed object; no value if there was none.
    template <typename Object>
    std::optional<Object> remove(int id) {
        const Lock lock(mMutex);
        auto node = table<Object>().extract(id);
        return node.empty() ? std::nullopt : std::optional(std::move(node.mapped()));
    }
    // Returns whether the object exists. Calls `change` with the compositor's lock held.
    template <typename Object>
    bool change(int id, const std::function<void(Object&)>& change) {
        const Lock lock(mMutex);
        const auto found = table<Object>().find(id);
        if (found != table<Object>().end()) change(found->second);
        return found != table<Object>().end();
    }
    void countSurface(int change) { mSurfaces += change; }

 private:
    template <typename Object>
    std::map<int, Object>& table() REQUIRES(mMutex) {
        return std::get<std::map<int, Object>>(mTables);
    }
    template <typename Object>
    std::vector<Object> all() const {
        const Lock lock(mMutex);
        std::vector<Object> objects;
        for (const auto& entry : std::get<std::map<int, Object>>(mTables)) {
            objects.push_back(entry.second);
        }
        return objects;
    }

    std::atomic<int> mSurfaces{0};
    mutable Mutex mMutex;
    InternalDisplay mInternalDisplay GUARDED_BY(mMutex){{1080, 1920},
                                                        android::ui::Rotation::Rotation0};
    std::tuple<std::map<int, Connection>, std::map<int, Layer>, std::map<int, VirtualDisplay>>
        mTables GUARDED_BY(mMutex);
    int mNextId GUARDED_BY(mMutex) = 1;
};

}  // namespace hostplatform
