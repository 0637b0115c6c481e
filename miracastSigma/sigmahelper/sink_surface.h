// The sink's full-screen surface, into which the session client renders the received stream.
//
// At most one set of compositor objects (connection, layer, surface) is held at a time. Any thread
// may call; creation and release are serialised.
#pragma once

#include "gui/Surface.h"
#include "miracast_sigma.h"

// Makes a new layer over everything else, as large as the built-in display, and returns its
// surface, which stays valid until the next call here or deleteSurface_impl(). A set that is still
// held is released first. Null on failure, logged; what was made until then is held and released
// likewise.
MIRACAST_SIGMA_EXPORT android::Surface* getSurface();

// The same with a strong reference, for callers that pass the surface on: another thread may
// release the set at any time.
android::sp<android::Surface> makeSinkSurface();

// Makes the surface and hands it to the session client. Returns the client's result, -1 without a
// client.
MIRACAST_SIGMA_EXPORT int setWFDSurface();

// Releases the current set, if any. deleteSurface() is the same under a plain name.
MIRACAST_SIGMA_EXPORT void deleteSurface_impl();
