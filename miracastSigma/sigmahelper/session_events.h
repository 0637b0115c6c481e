// Reactions to what the session client reports about a session.
#pragma once

#include "jni.h"
#include "miracast_sigma.h"

// The session client's event callback, on the client's threads: logs the report and reacts to it.
// It may block its caller: 3 seconds after starting UIBC, and until the UIBC worker has ended when
// a source with UIBC is torn down.
//   name      the report's name; may be null
//   count     number of texts in `objects`
//   objects   the report's texts, of at most 256 bytes each; not kept
// Nothing past `count`, past a text's 256 bytes or behind a null pointer is read.
MIRACAST_SIGMA_EXPORT void miracastWfdStringArrayCallback(const char* name, int count,
                                                          char (*objects)[256],
                                                          _jobject* const& javaObject);

// Routing values of the audio worker.
constexpr int kRouteBack = 0;
constexpr int kRouteToProxy = 1;

// What the cleanup worker is to do.
constexpr int kStopSessionCode = 2;
struct CleanupRequest {
    int code;  // kStopSessionCode; others do nothing
    int sessionId;
};

// The bodies of the handler's worker threads; neither takes possession of its argument, and both
// return null.
// `routing`, an int: 1 routes audio to the proxy output, 0 back; anything else does nothing.
MIRACAST_SIGMA_EXPORT void* broadcast_thread(void* routing);
// `request`, a CleanupRequest: stops the session, forgets its identifier, deletes a sink's surface.
MIRACAST_SIGMA_EXPORT void* cleanup_thread(void* request);

// Routes audio to the proxy output (non-zero) or back (0) on the caller's thread. For the agent.
MIRACAST_SIGMA_EXPORT void callSetDeviceConnectionStateSigma(int enable);
