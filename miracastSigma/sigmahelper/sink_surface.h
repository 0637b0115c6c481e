// The sink's full-screen surface, into which the session client renders the received stream.
//
// At most one set of compositor objects (connection, layer, surface) is held at a time. Any thread
// may call; creation and release are serialised.
#pragma once

#include "gui/Surface.h"
#include "miracast_sigma.h"

// Makes a new layer near the top of the layer order, as large as the built-in display, and returns
// its surface, which stays valid until the next call here or deleteSurface_impl(). A set that is
// still held is released first. Null on failure, logged; what was made until then is held and
// released likewise.
MIRACAST_SIGMA_EXPORT android::Surface* getSurface();

// Makes the surface and hands it to the session client. Returns the client's result; -1, and no
// surface, without a client.
MIRACAST_SIGMA_EXPORT int setWFDSurface();

// Makes the surface and hands it to `client`. Without a client the surface is made all the same,
// and the result is -1.
int giveSinkSurfaceTo(WiFiDisplayClient* client);

// Releases the current set, if any. deleteSurface() is the same under a plain name.
MIRACAST_SIGMA_EXPORT void deleteSurface_impl();
