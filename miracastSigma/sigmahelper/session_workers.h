// The workers of the session event handler: they route audio and end sessions.
#pragma once

#include "miracast_sigma.h"

// Routing values.
constexpr int kRouteBack = 0;
constexpr int kRouteToProxy = 1;

// Starts a detached worker that routes audio and does not wait for it; a failure is logged. The
// workers make their routing calls one at a time, in the order in which they were started. Any
// thread may call.
void startRoutingWorker(int routing);

// Starts a detached worker that stops the session, then releases the sink surface with that number
// (0: none) if the surface is still current; a failure is logged.
void startCleanupWorker(int sessionId, uint32_t surfaceNumber);

// The argument of cleanup_thread.
constexpr int kStopSessionCode = 2;
struct CleanupRequest {
    int code;  // kStopSessionCode; others do nothing
    int sessionId;
};

// The work of a worker, done on the caller's thread. Both return null and do not keep the argument.
//
// `routing` points to an int: 1 routes audio to the proxy output, 0 back; other numbers do nothing.
MIRACAST_SIGMA_EXPORT void* broadcast_thread(void* routing) noexcept;
// `request` points to a CleanupRequest: stops the session, clears its identifier, deletes a sink's
// surface.
MIRACAST_SIGMA_EXPORT void* cleanup_thread(void* request) noexcept;

// Routes audio to the proxy output (non-zero) or back (0) on the caller's thread. For the agent.
MIRACAST_SIGMA_EXPORT void callSetDeviceConnectionStateSigma(int enable) noexcept;
