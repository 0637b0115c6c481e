// The implementation of one WiFiDisplayClient: one end of at most one session at a time. The other
// end is the built-in peer or a linked device.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/DeviceCore.h"
#include "host/Mutex.h"
#include "host/session/SessionLink.h"
#include "host/session/session_types.h"

namespace hostplatform {

// The state that all clients share.
struct ClientsCommon {
    DeviceCore& core;
    Mutex mutex;  // guards the clients, too; never held during a callback
    std::condition_variable changed;
    // Once set, no session is created and nothing is reported any more.
    bool shutDown GUARDED_BY(mutex) = false;
};

class SimulatedClient {
 public:
    // `owner` is the WiFiDisplayClient, kept for leak checkers only.
    SimulatedClient(ClientsCommon& common, const void* owner, WfdEventCallback eventCallback,
                    WfdUibcCallback uibcCallback);

    // The calls of WiFiDisplayClient, by their kind. Any thread may call; none blocks. Each adds
    // `call` and its status to the journal. Each is refused when no session runs, and with an
    // identifier other than the session's.
    int stop(int sessionId);
    // A call that a linked peer carries out as well; `word` is its line on the link.
    int request(const std::string& call, int sessionId, const std::string& word);
    // A call that affects this end only. `effect` runs with the common mutex held. With needsPeer
    // the call is refused until a linked peer is connected.
    int control(const std::string& call, std::optional<int> sessionId = {},
                const std::function<void(SessionState&)>& effect = {}, bool needsPeer = true);
    int enableUibc(int sessionId);

    // For the service, with the common mutex held. `delay` is for Peer::Late. If `fault` is not 0,
    // create fails with that status.
    int create(const WfdDevice& local, const WfdDevice& peer, int sessionId, Peer kind,
               std::chrono::milliseconds delay, int fault);
    const std::optional<SessionState>& session() const {
        mCommon.mutex.assertHeld();
        return mSession;
    }
    void report(const std::string& name, const std::vector<std::string>& objects);
    // Called before a new session: ends this session, without a report, if its linked peer is not
    // connected yet. A source's session ends only if the new one is a source's, too.
    void endWaiting(bool newIsSource);
    // Whether no report is pending or being delivered and, with `links`, no link has a thread.
    bool isIdle(bool links) const {
        mCommon.mutex.assertHeld();
        return !mReporting && (!links || mLinkThreads == 0);
    }
    void shutDown();
    // Sends input to the source at the other end of the link; false if this is no sink with a link.
    bool sendInput(const WFD_uibc_event_t& event);
    bool takesInput() const {
        mCommon.mutex.assertHeld();
        return mSession && mSession->active && mSession->uibcStarted;
    }

    // Calls the UIBC callback and returns its answer. Call it without the mutex.
    bool deliverInput(WFD_uibc_event_t event) const;

 private:
    struct Report {
        std::string name;
        std::vector<std::string> objects;
        std::string state = {};              // the session's new state; may be empty
        std::chrono::milliseconds delay{0};  // device time to wait before it
    };

    bool isRunning() const REQUIRES(mCommon.mutex) {
        return mSession && mSession->active && !mStopping;
    }
    bool isRunningOn(const SessionLink& link) const REQUIRES(mCommon.mutex) {
        return mLink.get() == &link && isRunning();
    }
    std::shared_ptr<SessionLink> startLink(const WfdDevice& local, const WfdDevice& peer,
                                           int sessionId) REQUIRES(mCommon.mutex);
    void establish(std::chrono::milliseconds delay = {}) REQUIRES(mCommon.mutex);
    // Carries out a request, `word`, at either end of a link; false for an unknown word.
    bool carryOut(const std::string& word) REQUIRES(mCommon.mutex);
    void completeControl(const char* method) REQUIRES(mCommon.mutex);
    void endUnreachable() REQUIRES(mCommon.mutex);
    void beginStopping() REQUIRES(mCommon.mutex);
    void enqueue(Report report) REQUIRES(mCommon.mutex);
    void enqueueState(const char* state, std::chrono::milliseconds delay = {})
        REQUIRES(mCommon.mutex);

    // Run on the link's thread.
    void runLink(std::shared_ptr<SessionLink> link, int sessionId);
    bool onLine(const SessionLink& link, const std::string& line);

    // Run on the reporting thread.
    void deliverPending();
    void deliver(const Report& report) const;

    ClientsCommon& mCommon;
    DeviceCore& mCore;
    // The library never destroys it; a leak checker finds it here.
    [[maybe_unused]] const void* const mOwner;
    const WfdEventCallback mEventCallback;
    const WfdUibcCallback mUibcCallback;

    std::deque<Report> mPending GUARDED_BY(mCommon.mutex);
    bool mReporting GUARDED_BY(mCommon.mutex) = false;  // a reporting thread exists
    bool mStopping GUARDED_BY(mCommon.mutex) = false;   // the report "STOPPED" is pending
    std::optional<SessionState> mSession GUARDED_BY(mCommon.mutex);
    // Null with a built-in peer and once the link has ended.
    std::shared_ptr<SessionLink> mLink GUARDED_BY(mCommon.mutex);
    bool mLinked GUARDED_BY(mCommon.mutex) = false;  // the link is or was connected
    int mLinkThreads GUARDED_BY(mCommon.mutex) = 0;
};

}  // namespace hostplatform
