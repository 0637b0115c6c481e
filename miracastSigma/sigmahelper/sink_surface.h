// The sink's full-screen surface, into which the session client renders the received stream.
//
// One set of compositor objects (connection, layer, surface) is current at a time. Any thread may
// call; creation and release are serialised. The end of the process does not release the current
// surface: the client may still render into it.
#pragma once

#include <cstdint>

#include "gui/Surface.h"
#include "miracast_sigma.h"

// Makes a new layer near the top of the layer order, as large as the built-in display, and returns
// its surface. The surface stays valid until the next surface is made or deleteSurface_impl(). The
// earlier set is released once the new one has been made. On failure logs and returns null; the
// objects made before the failure are the current set.
MIRACAST_SIGMA_EXPORT android::Surface* getSurface() noexcept;

// Makes the surface and gives it to the session client. Returns the client's result. Without a
// client makes no surface and returns -1.
MIRACAST_SIGMA_EXPORT int setWFDSurface() noexcept;

// Makes the surface and gives it to `client`, then releases the earlier set. Returns the client's
// result. Without a client makes the surface, too, and returns -1.
int giveSinkSurfaceTo(WiFiDisplayClient* client);

// Releases the current set, if any. miracast_sigma.h exports it as deleteSurface().
MIRACAST_SIGMA_EXPORT void deleteSurface_impl() noexcept;

// Returns the number of the current set; 0 without one. Takes no lock.
uint32_t sinkSurfaceNumber();

// Releases the set with that number if it is still current.
void deleteSinkSurface(uint32_t number);
