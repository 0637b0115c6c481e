// What stands behind one WiFiDisplayClient: one end of at most one session at a time, with the
// built-in peer or a linked device at the other end.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "LinkMessage.h"
#include "SessionService.h"

namespace hostplatform {

class SessionLink;

struct PeerSettings {
    Peer peer = Peer::Answers;
    std::chrono::milliseconds delay{0};
    uint32_t width = 1280;
    uint32_t height = 720;
    bool secure = false;
};

class SimulatedClient {
 public:
    SimulatedClient(int number, WfdEventCallback eventCallback, WfdUibcCallback uibcCallback);

    // The calls of WiFiDisplayClient. On any thread; none blocks.
    int create(const WfdDevice& local, const WfdDevice& peer, int sessionId,
               const PeerSettings& settings);
    int stop(int sessionId);
    int teardown(int sessionId, bool flag);
    int pause(int sessionId, bool flag);
    int play(int sessionId, bool flag);
    int standby(int sessionId);
    int changeFormat(int codec, int profile, const std::string& rest);
    int negotiateTransport(int transport, int arg2, int arg3);
    int runCommand(int command);
    int requestIdr();
    int startUibc();
    int enableUibc(int sessionId);
    int setSurface(android::Surface* surface);

    std::optional<SessionState> session() const;
    bool uibcStarted() const;
    // The UIBC callback's answer, on the calling thread.
    bool deliverInput(WFD_uibc_event_t event);
    // To the source at the other end of the link; false when this is no sink with one.
    bool sendInput(const WFD_uibc_event_t& event);
    void report(const std::string& name, const std::vector<std::string>& objects);

    // Gives up, without a report, a session with this type of local device whose linked peer has
    // not come yet.
    void giveUpWaiting(int32_t deviceType);

    // Waits until nothing is being or yet to be delivered; false when the deadline came first.
    bool waitReported(std::chrono::steady_clock::time_point deadline);
    // Drops what is pending, accepts no more and closes the link.
    void close();
    // Waits until no link has a thread any more; false when the deadline came first.
    bool waitLinksEnded(std::chrono::steady_clock::time_point deadline);

 private:
    struct Report {
        std::string name;
        std::vector<std::string> objects;
        std::string state;                   // of the session, from this report on; may be empty
        std::chrono::milliseconds delay{0};  // device time before it
    };

    // A call on the running session: journalled, refused when there is none, it has another
    // identifier, or, unless `withoutPeer`, its peer is yet to come; else `effect` is run. All
    // under mMutex.
    template <typename Effect>
    int control(const std::string& call, std::optional<int> sessionId, Effect effect,
                bool withoutPeer = false);
    // Such a call that a linked peer carries out as well.
    int request(const std::string& call, int sessionId, LinkMessage::Kind kind);

    // All these with mMutex held.
    bool isRunning() const;
    void establish(std::chrono::milliseconds delay = {});
    void carryOut(LinkMessage::Kind kind);  // at either end, whichever of them asked for it
    void completeControl(const char* method);
    void endUnreachable();
    void beginStopping();

    // The first two with mMutex held, the others on the link's thread.
    std::shared_ptr<SessionLink> startLink(const WfdDevice& local, const WfdDevice& peer,
                                           int sessionId);
    bool isRunningOn(const SessionLink& link) const;
    void runLink(std::shared_ptr<SessionLink> link);
    void onLinked(const SessionLink& link, int sessionId);
    void onMessage(const SessionLink& link, const LinkMessage& message);
    void onLost(const SessionLink& link);

    void enqueue(Report report);          // with mMutex held
    void enqueueState(const char* state,  // likewise
                      std::chrono::milliseconds delay = {});
    void deliverPending();  // the reporting thread
    void deliver(const Report& report) const;

    const int mNumber;
    const WfdEventCallback mEventCallback;
    const WfdUibcCallback mUibcCallback;

    mutable std::mutex mMutex;  // guards everything below; never held during a callback
    std::condition_variable mChanged;
    std::deque<Report> mPending;
    bool mReporting = false;  // a reporting thread exists
    bool mClosed = false;
    bool mStopping = false;  // the session's "STOPPED" is pending
    std::optional<SessionState> mSession;
    PeerSettings mSettings;              // of the session
    std::shared_ptr<SessionLink> mLink;  // none with the built-in peer, and none once it has ended
    bool mLinked = false;                // the link stands, or stood
    int mLinkThreads = 0;
};

}  // namespace hostplatform
