// What stands behind one WiFiDisplayClient: one end of at most one session at a time, with the
// built-in peer at the other end.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "SessionService.h"

namespace hostplatform {

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
    void report(const std::string& name, const std::vector<std::string>& objects);

    // Waits until nothing is being or yet to be delivered; false when the deadline came first.
    bool waitReported(std::chrono::steady_clock::time_point deadline);
    // Drops what is pending and accepts no more.
    void close();

 private:
    struct Report {
        std::string name;
        std::vector<std::string> objects;
        std::string state;                   // of the session, from this report on; may be empty
        std::chrono::milliseconds delay{0};  // device time before it
    };

    // A call on the running session: journalled, refused when there is none or it has another
    // identifier, else `effect` is run. All under mMutex.
    template <typename Effect>
    int control(const std::string& call, std::optional<int> sessionId, Effect effect);
    int streamControl(const std::string& call, int sessionId, const char* method);

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
};

}  // namespace hostplatform
