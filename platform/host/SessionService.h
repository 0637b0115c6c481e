// The simulated session service: the world behind WiFiDisplayClient. It plays the peer or links the
// session to that of another simulated device, remembers what the newest session went through, and
// lets a test act as the sink's user.
//
// Reports of one client are delivered in order, on a thread that the client starts when there is
// something to report and that ends when nothing is left, so an idle session costs no thread. All
// functions are callable on any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gui/IGraphicBufferProducer.h"
#include "gui/Surface.h"
#include "wfd/WiFiDisplayClient.h"

namespace hostplatform {

enum class Peer {
    Answers,  // the session is established and plays (the default)
    Silent,   // nothing is ever reported
    Refuses,  // the RTSP connection is closed at once
    Late,     // answers, after a delay
    // The simulated device of another process (or the same): a source listens on its control port,
    // local.rtspPort or else 7236, and a sink connects to the peer's address and port. What one end
    // is asked to do has its effect at both. Of the sources, and of the sinks, of a process at most
    // one waits for its peer: a newer session takes the place of one that still does.
    Linked,
};

// The peer of sessions created from now on; `delay` is device time, for Late.
void setPeer(Peer peer, std::chrono::milliseconds delay = std::chrono::seconds(5));

// The stream that a source announces (at first 1280 x 720, not secure).
void setStream(uint32_t width, uint32_t height, bool secure);

// The identifier of the next session; the ones after it count on from there.
void setNextSessionId(int id);

struct SessionState {
    int client = 0;  // 1 for the first client of the process
    int id = 0;
    bool active = false;  // created and not yet stopped
    std::string state;    // the last reported: "NEGOTIATED", ..., "PLAY", "STOPPED"
    WfdDevice local{};
    WfdDevice peer{};
    int codec = -1;  // of the last format change, -1 before it
    int profile = -1;
    int transport = -1;  // 1 TCP, 0 UDP, -1 before it was negotiated
    std::vector<int> runtimeCommands;
    int idrRequests = 0;
    bool uibcEnabled = false;
    bool uibcStarted = false;
    android::sp<android::Surface> surface;                  // a sink renders here
    android::sp<android::IGraphicBufferProducer> producer;  // a source reads the picture here
};

// The newest client's session; no value before the first createWfdSession of that client.
std::optional<SessionState> currentSession();

// Clients made so far. None of them is ever destroyed.
int clientCount();

// The sessions of all clients that had one, oldest client first.
std::vector<SessionState> allSessions();

// Input of the sink's user. With a linked sink here it goes to the source at the other end, which
// takes it if its UIBC has been started. Else the user is that of the built-in peer, and it reaches
// the newest client whose UIBC has been started; the calling thread plays the client's receiving
// thread. False when there is nobody to take it or it was refused here.
bool injectInput(const WFD_uibc_event_t& event);
WFD_uibc_event_t keyEvent(uint16_t keysym, uint32_t action);
WFD_uibc_event_t touchEvent(uint32_t action);

// Makes the newest client report something, on its own thread, after what it has yet to report.
// False when there is no client.
bool report(const std::string& name, const std::vector<std::string>& objects);

// Waits until no client has anything left to report, at most `timeout` of real time.
bool waitReported(std::chrono::milliseconds timeout = std::chrono::seconds(20));

// Drops what is yet to be reported, reports nothing more and closes the links, so that the process
// can end; waits for a report or an input that is being delivered.
void shutdownSessions();

}  // namespace hostplatform
