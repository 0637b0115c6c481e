#include "host/session/SimulatedClient.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "host/session/user_input.h"
#include "host/small_thread.h"
#include "host/text_format.h"

namespace hostplatform {

namespace {

constexpr int kRefused = -1;
constexpr int kControlPort = 7236;  // registered for Wi-Fi Display

class Producer : public android::IGraphicBufferProducer {};

bool isUsableAddress(const char* text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address) == 1 && address.s_addr != INADDR_ANY;
}

}  // namespace

SimulatedClient::SimulatedClient(ClientsCommon& common, const void* owner,
                                 WfdEventCallback eventCallback, WfdUibcCallback uibcCallback)
    : mCommon(common),
      mCore(common.core),
      mOwner(owner),
      mEventCallback(eventCallback),
      mUibcCallback(uibcCallback) {}

int SimulatedClient::create(const WfdDevice& local, const WfdDevice& peer, int sessionId, Peer kind,
                            std::chrono::milliseconds delay, int fault) {
    mCommon.mutex.assertHeld();
    int status = fault;
    if (status == 0 && mSession && mSession->active) status = kRefused;
    std::shared_ptr<SessionLink> link;
    if (status == 0 && kind == Peer::Linked) {
        link = startLink(local, peer, sessionId);
        if (link == nullptr) status = kRefused;
    }
    // Look at the peer's record: the local one says R2 in every mode.
    mCore.journal.add("session",
                      format("createWfdSession as %s%s, local \"%s\", peer \"%s\" port %d -> %d",
                             local.deviceType == 0 ? "source" : "sink", peer.r2 != 0 ? " (R2)" : "",
                             local.ipAddress, peer.ipAddress, peer.rtspPort, status));
    if (status != 0) return status;

    mStopping = false;
    mLink = std::move(link);
    mLinked = false;
    mSession = SessionState{sessionId, true, "", local, peer, false, nullptr, nullptr};

    if (kind == Peer::Linked || !isUsableAddress(peer.ipAddress)) return 0;
    if (kind == Peer::Answers) establish();
    if (kind == Peer::Late) establish(delay);
    if (kind == Peer::Refuses) endUnreachable();
    return 0;
}

void SimulatedClient::establish(std::chrono::milliseconds delay) {
    const bool isSource = mSession->isSource();
    if (!isSource) enqueueState("NEGOTIATING", delay);
    enqueueState("NEGOTIATED", isSource ? delay : std::chrono::milliseconds{0});
    enqueueState("ESTABLISHED");
    if (isSource) {
        mSession->producer = new Producer;
        // The report carries the producer's address as a number.
        const auto address = reinterpret_cast<uintptr_t>(mSession->producer.get());
        enqueue({"MMEvent", {"MMStreamStarted", "1280", "720", "0", std::to_string(address)}});
        enqueue({"AudioEvent", {"AudioProxyOpened"}});
    }
    completeControl("PLAY");
}

void SimulatedClient::completeControl(const char* method) {
    enqueue({"StreamControlCompleted", {std::to_string(mSession->id), method}, method});
}

void SimulatedClient::endUnreachable() {
    enqueue({"Error", {"RTSPCloseCallback"}});
    beginStopping();
}

void SimulatedClient::beginStopping() {
    enqueueState("STOPPED");
    mStopping = true;
    if (mLink) mLink->close();
}

int SimulatedClient::control(const std::string& call, std::optional<int> sessionId,
                             const std::function<void(SessionState&)>& effect, bool needsPeer) {
    int status = mCore.faults.next(Fault::SessionControl);
    const Lock lock(mCommon.mutex);
    const bool ready = isRunning() && (!needsPeer || !mLink || mLinked);
    if (status == 0 && (!ready || (sessionId && *sessionId != mSession->id))) status = kRefused;
    // Add the call before the effect, so that it comes before the reports that it causes.
    const std::string id = sessionId ? format(" id %d", *sessionId) : "";
    mCore.journal.add("session", call + id + format(" -> %d", status));
    if (status == 0 && effect) effect(*mSession);
    return status;
}

int SimulatedClient::stop(int sessionId) {
    int status = mCore.faults.next(Fault::SessionStop);
    const Lock lock(mCommon.mutex);
    const bool known = mSession && mSession->id == sessionId;
    if (status == 0 && !known) status = kRefused;
    // The cleanup of a session that has stopped by itself changes nothing.
    const bool ended = status == 0 && !isRunning();
    mCore.journal.add("session", format("stopWfdSession id %d%s -> %d", sessionId,
                                        ended ? ", stopped already" : "", status));
    // A linked peer sees a lost connection.
    if (status == 0 && !ended) beginStopping();
    return status;
}

int SimulatedClient::request(const std::string& call, int sessionId, const std::string& word) {
    const auto ask = [&](SessionState&) REQUIRES(mCommon.mutex) {
        if (mLink) mLink->send(word);
        carryOut(word);
    };
    return control(call, sessionId, ask, word != "teardown");
}

bool SimulatedClient::carryOut(const std::string& word) {
    if (word == "pause") {
        completeControl("PAUSE");
    } else if (word == "play") {
        completeControl("PLAY");
    } else if (word == "standby") {
        enqueueState("STANDBY");
    } else if (word == "teardown") {
        completeControl("TEARDOWN");
        beginStopping();
    } else {
        return false;
    }
    return true;
}

int SimulatedClient::enableUibc(int sessionId) {
    return control("enableUIBC", sessionId, [this](SessionState&) REQUIRES(mCommon.mutex) {
        enqueue({"UIBCControlCompleted", {"ENABLED"}});
    });
}

void SimulatedClient::report(const std::string& name, const std::vector<std::string>& objects) {
    mCommon.mutex.assertHeld();
    enqueue({name, objects});
}

void SimulatedClient::endWaiting(bool newIsSource) {
    mCommon.mutex.assertHeld();
    if (!isRunning() || !mLink || mLinked || (mSession->isSource() && !newIsSource)) return;
    mLink->close();
    mSession->active = false;
}

void SimulatedClient::shutDown() {
    mCommon.mutex.assertHeld();
    mPending.clear();
    if (mLink) mLink->close();
}

bool SimulatedClient::sendInput(const WFD_uibc_event_t& event) {
    mCommon.mutex.assertHeld();
    if (!isRunning() || !mLink || !mLinked || mSession->isSource()) return false;
    mLink->send("input " + toHex(event));
    return true;
}

bool SimulatedClient::deliverInput(WFD_uibc_event_t event) const {
    return mUibcCallback != nullptr && mUibcCallback(&event, nullptr, nullptr, nullptr);
}

std::shared_ptr<SessionLink> SimulatedClient::startLink(const WfdDevice& local,
                                                        const WfdDevice& peer, int sessionId) {
    const bool isSource = local.deviceType == 0;
    auto link = std::make_shared<SessionLink>(mCore, isSource);
    const bool ownPort = local.rtspPort >= 1 && local.rtspPort <= 65535;
    const int port = !isSource ? peer.rtspPort : ownPort ? local.rtspPort : kControlPort;
    if (!link->open(peer.ipAddress, port)) return nullptr;
    if (startSmallThread(
            [this, link, sessionId]() mutable { runLink(std::move(link), sessionId); }) != 0) {
        mCore.journal.add("session", "no thread for the link");
        return nullptr;
    }
    ++mLinkThreads;
    return link;
}

void SimulatedClient::runLink(std::shared_ptr<SessionLink> link, int sessionId) {
    if (const auto id = link->connect(sessionId)) {
        {
            const Lock lock(mCommon.mutex);
            if (isRunningOn(*link)) {
                mLinked = true;
                mSession->id = *id;
                establish();
            }
        }
        while (const auto line = link->receive()) {
            if (!onLine(*link, *line)) {
                link->lose("it sent \"" + *line + '"');
                break;
            }
        }
    }
    {
        const Lock lock(mCommon.mutex);
        if (isRunningOn(*link)) endUnreachable();
        if (mLink == link) mLink.reset();
    }
    link.reset();  // close the sockets before the thread counts as ended
    const Lock lock(mCommon.mutex);
    --mLinkThreads;
    mCommon.changed.notify_all();
}

bool SimulatedClient::onLine(const SessionLink& link, const std::string& line) {
    Lock lock(mCommon.mutex);
    if (mCommon.shutDown || !isRunningOn(link) || carryOut(line)) return true;
    WFD_uibc_event_t event{};
    const bool isInput = line.rfind("input ", 0) == 0 && parseHex(line.substr(6), event);
    if (!isInput || !mSession->isSource()) return false;  // only sinks have a user
    const bool wanted = takesInput();
    lock.unlock();
    const char* const outcome = !wanted               ? "refused: UIBC is not started"
                                : deliverInput(event) ? "taken"
                                                      : "refused";
    mCore.journal.add("link", format("source: input of type %u %s", event.type, outcome));
    return true;
}

void SimulatedClient::enqueue(Report report) {
    if (mCommon.shutDown) return;
    mPending.push_back(std::move(report));
    if (mReporting) return;
    mReporting = startSmallThread([this] { deliverPending(); }) == 0;
    if (!mReporting) mCore.journal.add("session", "no thread to report on");
}

void SimulatedClient::enqueueState(const char* state, std::chrono::milliseconds delay) {
    enqueue({"SessionState",
             {state, mSession->peer.ipAddress, std::to_string(mSession->id)},
             state,
             delay});
}

void SimulatedClient::deliverPending() {
    Lock lock(mCommon.mutex);
    while (!mPending.empty()) {
        const Report report = std::move(mPending.front());
        mPending.pop_front();
        const uint64_t due =
            mCore.clock.milliseconds() + static_cast<uint64_t>(report.delay.count());
        while (!mCommon.shutDown && mCore.clock.milliseconds() < due) {
            mCommon.changed.wait_for(lock, std::chrono::milliseconds(2));  // then check again
        }
        if (mCommon.shutDown) break;
        const bool last = report.state == "STOPPED";
        if (!report.state.empty()) mSession->state = report.state;
        if (last) mSession->active = false;
        lock.unlock();
        deliver(report);
        lock.lock();
        if (last && !mSession->active) {  // unless the callback has begun another session
            mSession->surface.clear();
            mSession->producer.clear();
        }
    }
    mReporting = false;
    mCommon.changed.notify_all();
}

void SimulatedClient::deliver(const Report& report) const {
    std::string text = report.name;
    const size_t count = report.objects.size();
    std::vector<std::array<char, 256>> objects(count);
    for (size_t i = 0; i < count; ++i) {
        text += (i == 0 ? ": " : ", ") + report.objects[i];
        // Copy at most 255 characters; the zeroed array already has the end.
        memcpy(objects[i].data(), report.objects[i].data(),
               std::min(report.objects[i].size(), objects[i].size() - 1));
    }
    mCore.journal.add("report", text);
    if (mEventCallback == nullptr) return;
    mEventCallback(report.name.c_str(), static_cast<int>(count),
                   reinterpret_cast<char(*)[256]>(objects.data()), nullptr);
}

}  // namespace hostplatform
