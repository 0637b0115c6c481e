// The source's virtual display, which mirrors the device's screen into the session client's
// encoder.
//
// There is at most one. Any thread may call; creation and release are serialised. exit() does not
// wait for a compositor call in progress.
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
    android::IGraphicBufferProducer* producer;  // receives the picture; not owned
};
static_assert(offsetof(mmSessionInfo, producer) == 16 && sizeof(mmSessionInfo) == 24,
              "seen by other libraries");

// Makes the virtual display for the stream *info (an mmSessionInfo), after destroying an existing
// display. Returns 0, also when the device has no built-in display; -1 for a null `info` or
// producer or when the display cannot be made; the status of a failed display query.
MIRACAST_SIGMA_EXPORT int createVDS(void* info) noexcept;

// Makes a virtual display that shows the built-in display `display`, whose state is `state`, in the
// producer. The picture keeps its aspect ratio, fills the stream's picture as far as possible and
// is centred. Stores the display's token in *outDisplay; no pointer may be null. Returns 0, or -1
// when the source has no size or the display is refused.
MIRACAST_SIGMA_EXPORT int configureVirtualDisplay(
    const android::sp<android::IBinder>& display, const android::ui::DisplayState& state,
    const android::sp<android::IGraphicBufferProducer>& producer,
    android::sp<android::IBinder>* outDisplay, mmSessionInfo* info) noexcept;

// Destroys the virtual display, if there is one.
MIRACAST_SIGMA_EXPORT void releaseVDS() noexcept;
