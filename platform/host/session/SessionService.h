// The simulated session service, which all WiFiDisplayClient objects use. It simulates the peer or
// links the session with that of another simulated device, keeps the state of the sessions, and
// lets a test act as the sink's user.
//
// The reports of one client are delivered in order, on a thread that runs only while there are
// reports. Any thread may call.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "host/session/SimulatedClient.h"
#include "host/session/user_input.h"

namespace hostplatform {

class SessionService {
 public:
    explicit SessionService(DeviceCore& core) : mCommon{core, {}, {}, false} {}

    // Sets the peer of all sessions created from now on. `delay` is device time, for Peer::Late.
    void setPeer(Peer peer, std::chrono::milliseconds delay = std::chrono::seconds(5));
    // Sets the identifier of the next session (initially 10000001); later ones count up from it.
    void setNextSessionId(int id);

    // Returns the newest client's session; no value if it has had none.
    std::optional<SessionState> current();
    // Returns the last session of every client that has had one, oldest client first.
    std::vector<SessionState> all();
    // Returns the number of clients made. No client is ever destroyed.
    int clientCount();

    // Simulates input of the sink's user. If a client here is a linked sink, the event goes to the
    // source at the other end, which accepts it once its UIBC has been started. Otherwise the user
    // is that of the built-in peer: the event goes to the newest client whose UIBC has been
    // started, and the calling thread acts as that client's receiving thread. Returns false if no
    // client accepts it.
    bool injectInput(const WFD_uibc_event_t& event);

    // Makes the newest client deliver a report, after its pending ones. Returns false if there is
    // no client.
    bool report(const std::string& name, const std::vector<std::string>& objects);

    // Waits until all reports have been delivered, at most `timeout` of real time.
    bool waitReported(std::chrono::milliseconds timeout = std::chrono::seconds(60));

    // Prepares the end of the process: drops pending reports, refuses new sessions and reports,
    // closes the links, and waits for a running callback.
    void shutdown();

    void reset() { setPeer(Peer::Answers); }

    // For WiFiDisplayClient. The service keeps every client for good.
    ClientsCommon& common() { return mCommon; }
    void add(SimulatedClient* client);
    int create(SimulatedClient& client, const WfdDevice& local, const WfdDevice& peer);

 private:
    bool allIdle(bool links) const REQUIRES(mCommon.mutex);

    ClientsCommon mCommon;
    Peer mPeer GUARDED_BY(mCommon.mutex) = Peer::Answers;
    std::chrono::milliseconds mDelay GUARDED_BY(mCommon.mutex){0};  // for Peer::Late
    int mNextSessionId GUARDED_BY(mCommon.mutex) = 10000001;
    std::vector<SimulatedClient*> mClients GUARDED_BY(mCommon.mutex);
};

}  // namespace hostplatform
