// The peer and the state of a session of the simulated device.
#pragma once

#include <string>

#include "gui/IGraphicBufferProducer.h"
#include "gui/Surface.h"
#include "wfd/WiFiDisplayClient.h"

namespace hostplatform {

// The other end of a session. A built-in peer (the first four) without a usable IPv4 address acts
// like Silent.
enum class Peer {
    Answers,  // the session is established and plays (the default)
    Silent,   // nothing is ever reported
    Refuses,  // the RTSP connection is closed at once
    Late,     // answers, after a delay
    // The simulated device of another process (or the same one). A source listens on its control
    // port, local.rtspPort or else 7236. A sink tries for 5 seconds of device time to connect to
    // the peer's address and port. Both devices carry out the requests of either. Every new session
    // ends, without a report, sink sessions that are still connecting; a source's new session also
    // ends source sessions that are still listening.
    Linked,
};

struct SessionState {
    int id = 0;
    bool active = false;  // created and not yet stopped
    std::string state;    // last reported: "NEGOTIATED", ..., "PLAY", "STOPPED"
    WfdDevice local{};
    WfdDevice peer{};
    bool uibcStarted = false;
    android::sp<android::Surface> surface;                  // a sink renders here
    android::sp<android::IGraphicBufferProducer> producer;  // a source reads the picture here

    bool isSource() const { return local.deviceType == 0; }
};

}  // namespace hostplatform
