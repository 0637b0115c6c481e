// The source's virtual display, which mirrors the device's screen into the session client's
// encoder.
//
// There is at most one. Any thread may call; creation and release are serialised.
#pragma once

#include <cstddef>
#include <cstdint>

#include "binder/IBinder.h"
#include "gui/IGraphicBufferProducer.h"
#include "miracast_sigma.h"
#include "ui/DisplayState.h"

// The source's stream, as the session client announced it.
struct mmSessionInfo {
    uint32_t height;  // of the stream's picture, in pixels
    uint32_t width;
    uint32_t secure;                            // non-zero: the display is a secure one
    android::IGraphicBufferProducer* producer;  // the picture goes here; not owned
};
static_assert(offsetof(mmSessionInfo, producer) == 16 && sizeof(mmSessionInfo) == 24,
              "seen by other libraries");

// Makes the virtual display for the stream at `info` (an mmSessionInfo). One that exists is
// destroyed first. Returns 0, also when the device has no display of its own; -1 for a null `info`
// or producer or when the display cannot be made; else the status of the failed display query.
MIRACAST_SIGMA_EXPORT int createVDS(void* info);

// Makes a virtual display that shows the built-in display `display`, whose state is `state`, in the
// producer, fitted into the stream's picture with its aspect ratio kept and centred. Stores its
// token in *outDisplay; no pointer may be null. Returns 0, or -1 when the source has no size or the
// display is refused.
MIRACAST_SIGMA_EXPORT int configureVirtualDisplay(
    const android::sp<android::IBinder>& display, const android::ui::DisplayState& state,
    const android::sp<android::IGraphicBufferProducer>& producer,
    android::sp<android::IBinder>* outDisplay, mmSessionInfo* info);

// Destroys the virtual display, if there is one.
MIRACAST_SIGMA_EXPORT void releaseVDS();
