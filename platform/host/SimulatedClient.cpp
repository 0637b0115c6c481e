#include "SimulatedClient.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "Clock.h"
#include "Faults.h"
#include "Journal.h"
#include "SessionLink.h"
#include "SmallThread.h"
#include "TextFormat.h"

namespace hostplatform {

namespace {

constexpr int kRefused = -1;
constexpr uint16_t kControlPort = 7236;  // registered for Wi-Fi Display

class Producer : public android::IGraphicBufferProducer {};

void journalCall(const std::string& call, int status) {
    Journal::instance().add("session", call + format(" -> %d", status));
}

}  // namespace

SimulatedClient::SimulatedClient(int number, WfdEventCallback eventCallback,
                                 WfdUibcCallback uibcCallback)
    : mNumber(number), mEventCallback(eventCallback), mUibcCallback(uibcCallback) {}

int SimulatedClient::create(const WfdDevice& local, const WfdDevice& peer, int sessionId,
                            const PeerSettings& settings) {
    const bool isSource = local.deviceType == 0;
    const std::string call =
        format("createWfdSession as %s%s, local \"%s\", peer \"%s\" port %d%s",
               isSource ? "source" : "sink", local.r2 != 0 ? " (R2)" : "", local.ipAddress,
               peer.ipAddress, peer.rtspPort, peer.r2 != 0 ? " (R2)" : "");

    const std::lock_guard lock(mMutex);
    int status = faultStatus(Fault::SessionCreation);
    if (status == 0 && (mClosed || (mSession && mSession->active))) status = kRefused;
    std::shared_ptr<SessionLink> link;
    if (status == 0 && settings.peer == Peer::Linked) {
        link = startLink(local, peer, sessionId);
        if (link == nullptr) status = kRefused;
    }
    journalCall(call, status);
    if (status != 0) return status;

    mStopping = false;
    mSettings = settings;
    mLink = std::move(link);
    mLinked = false;
    mSession.emplace();
    mSession->client = mNumber;
    mSession->id = sessionId;
    mSession->active = true;
    mSession->local = local;
    mSession->peer = peer;

    switch (settings.peer) {
        case Peer::Silent:
        case Peer::Linked:
            break;
        case Peer::Refuses:
            endUnreachable();
            break;
        case Peer::Late:
            establish(settings.delay);
            break;
        case Peer::Answers:
            establish();
            break;
    }
    return 0;
}

void SimulatedClient::establish(std::chrono::milliseconds delay) {
    const bool isSource = mSession->local.deviceType == 0;
    if (!isSource) enqueueState("NEGOTIATING", delay);
    enqueueState("NEGOTIATED", isSource ? delay : std::chrono::milliseconds{0});
    enqueueState("ESTABLISHED");
    if (isSource) {
        mSession->producer = new Producer;
        // The producer's address goes as a number, in this process.
        const auto address = reinterpret_cast<uintptr_t>(mSession->producer.get());
        enqueue(
            {"MMEvent",
             {"MMStreamStarted", std::to_string(mSettings.width), std::to_string(mSettings.height),
              mSettings.secure ? "1" : "0", std::to_string(address)},
             "",
             {}});
        enqueue({"AudioEvent", {"AudioProxyOpened"}, "", {}});
    }
    completeControl("PLAY");
}

void SimulatedClient::completeControl(const char* method) {
    enqueue({"StreamControlCompleted", {std::to_string(mSession->id), method}, method, {}});
}

void SimulatedClient::endUnreachable() {
    enqueue({"Error", {"RTSPCloseCallback"}, "", {}});
    beginStopping();
}

void SimulatedClient::beginStopping() {
    enqueueState("STOPPED");
    mStopping = true;
    if (mLink) mLink->close();
}

template <typename Effect>
int SimulatedClient::control(const std::string& call, std::optional<int> sessionId, Effect effect,
                             bool withoutPeer) {
    const std::lock_guard lock(mMutex);
    int status = faultStatus(Fault::SessionControl);
    const bool hasPeer = !mLink || mLinked;
    const bool running = isRunning() && (hasPeer || withoutPeer);
    if (status == 0 && (!running || (sessionId && *sessionId != mSession->id))) status = kRefused;
    // Before the effect, so that the call stands before the reports that it leads to.
    journalCall(sessionId ? call + format(" id %d", *sessionId) : call, status);
    if (status == 0) effect(*mSession);
    return status;
}

int SimulatedClient::stop(int sessionId) {
    {
        // Cleaning up after a session that has stopped by itself finds nothing to do.
        const std::lock_guard lock(mMutex);
        const bool ended = mSession && (mStopping || !mSession->active);
        if (ended && mSession->id == sessionId && faultStatus(Fault::SessionControl) == 0) {
            journalCall(format("stopWfdSession id %d, stopped already", sessionId), 0);
            return 0;
        }
    }
    // To a linked peer it is as if the connection had gone.
    return control(
        "stopWfdSession", sessionId, [this](SessionState&) { beginStopping(); }, true);
}

int SimulatedClient::request(const std::string& call, int sessionId, LinkMessage::Kind kind) {
    const bool ends = kind == LinkMessage::Kind::Teardown;
    return control(
        call, sessionId,
        [&](SessionState&) {
            if (mLink) mLink->send({kind, 0, {}});
            carryOut(kind);
        },
        ends);
}

void SimulatedClient::carryOut(LinkMessage::Kind kind) {
    switch (kind) {
        case LinkMessage::Kind::Pause:
            completeControl("PAUSE");
            break;
        case LinkMessage::Kind::Play:
            completeControl("PLAY");
            break;
        case LinkMessage::Kind::Standby:
            enqueueState("STANDBY");
            break;
        case LinkMessage::Kind::Teardown:
            completeControl("TEARDOWN");
            beginStopping();
            break;
        default:
            break;
    }
}

int SimulatedClient::teardown(int sessionId, bool flag) {
    return request(format("teardown_rtsp flag %d", flag), sessionId, LinkMessage::Kind::Teardown);
}

int SimulatedClient::pause(int sessionId, bool flag) {
    return request(format("pause_rtsp flag %d", flag), sessionId, LinkMessage::Kind::Pause);
}

int SimulatedClient::play(int sessionId, bool flag) {
    return request(format("play_rtsp flag %d", flag), sessionId, LinkMessage::Kind::Play);
}

int SimulatedClient::standby(int sessionId) {
    return request("standby_rtsp", sessionId, LinkMessage::Kind::Standby);
}

int SimulatedClient::changeFormat(int codec, int profile, const std::string& rest) {
    return control(
        format("sendAvFormatChange codec %d profile %d %s", codec, profile, rest.c_str()),
        std::nullopt, [&](SessionState& s) {
            s.codec = codec;
            s.profile = profile;
        });
}

int SimulatedClient::negotiateTransport(int transport, int arg2, int arg3) {
    return control(format("negotiateRtpTransport %d (%s) %d %d", transport,
                          transport == 1 ? "TCP" : "UDP", arg2, arg3),
                   std::nullopt, [&](SessionState& s) { s.transport = transport; });
}

int SimulatedClient::runCommand(int command) {
    return control(format("executeRuntimeCommand %d", command), std::nullopt,
                   [&](SessionState& s) { s.runtimeCommands.push_back(command); });
}

int SimulatedClient::requestIdr() {
    return control("sendIDRRequest", std::nullopt, [](SessionState& s) { ++s.idrRequests; });
}

int SimulatedClient::startUibc() {
    return control("startUIBC", std::nullopt, [](SessionState& s) { s.uibcStarted = true; });
}

int SimulatedClient::enableUibc(int sessionId) {
    return control("enableUIBC", sessionId, [this](SessionState& s) {
        s.uibcEnabled = true;
        enqueue({"UIBCControlCompleted", {"ENABLED"}, "", {}});
    });
}

int SimulatedClient::setSurface(android::Surface* surface) {
    const std::string call = surface == nullptr
                                 ? "setSurface null"
                                 : format("setSurface of layer %d", surface->layerId());
    android::sp<android::Surface> held = surface;
    return control(call, std::nullopt, [&](SessionState& s) { std::swap(s.surface, held); });
}

std::optional<SessionState> SimulatedClient::session() const {
    const std::lock_guard lock(mMutex);
    return mSession;
}

bool SimulatedClient::uibcStarted() const {
    const std::lock_guard lock(mMutex);
    return mSession && mSession->active && mSession->uibcStarted;
}

bool SimulatedClient::deliverInput(WFD_uibc_event_t event) {
    return mUibcCallback != nullptr && mUibcCallback(&event, nullptr, nullptr, nullptr);
}

bool SimulatedClient::sendInput(const WFD_uibc_event_t& event) {
    const std::lock_guard lock(mMutex);
    if (!isRunning() || !mLink || !mLinked || mSession->local.deviceType == 0) return false;
    mLink->send({LinkMessage::Kind::Input, 0, event});
    return true;
}

void SimulatedClient::report(const std::string& name, const std::vector<std::string>& objects) {
    const std::lock_guard lock(mMutex);
    enqueue({name, objects, "", {}});
}

bool SimulatedClient::waitReported(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mMutex);
    return mChanged.wait_until(lock, deadline, [this] { return !mReporting; });
}

void SimulatedClient::close() {
    const std::lock_guard lock(mMutex);
    mClosed = true;
    mPending.clear();
    if (mLink) mLink->close();
    mChanged.notify_all();
}

bool SimulatedClient::waitLinksEnded(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mMutex);
    return mChanged.wait_until(lock, deadline, [this] { return mLinkThreads == 0; });
}

void SimulatedClient::giveUpWaiting(int32_t deviceType) {
    const std::lock_guard lock(mMutex);
    if (!isRunning() || !mLink || mLinked || mSession->local.deviceType != deviceType) return;
    mLink->close();
    mSession->active = false;
}

bool SimulatedClient::isRunning() const { return mSession && mSession->active && !mStopping; }

std::shared_ptr<SessionLink> SimulatedClient::startLink(const WfdDevice& local,
                                                        const WfdDevice& peer, int sessionId) {
    auto link = std::make_shared<SessionLink>(SessionLink::Events{
        [this](const SessionLink& from, int id) { onLinked(from, id); },
        [this](const SessionLink& from, const LinkMessage& message) { onMessage(from, message); },
        [this](const SessionLink& from) { onLost(from); }});
    const bool portGiven = local.rtspPort >= 1 && local.rtspPort <= 65535;
    const auto port = portGiven ? static_cast<uint16_t>(local.rtspPort) : kControlPort;
    if (local.deviceType == 0 ? link->listen(port, sessionId)
                              : link->connect(peer.ipAddress, peer.rtspPort)) {
        return nullptr;
    }
    if (startSmallThread([this, link]() mutable { runLink(std::move(link)); }) != 0) {
        Journal::instance().add("session", "no thread for the link");
        return nullptr;
    }
    ++mLinkThreads;
    return link;
}

void SimulatedClient::runLink(std::shared_ptr<SessionLink> link) {
    link->run();
    {
        const std::lock_guard lock(mMutex);
        if (mLink == link) mLink.reset();
    }
    link.reset();
    const std::lock_guard lock(mMutex);
    --mLinkThreads;
    mChanged.notify_all();
}

bool SimulatedClient::isRunningOn(const SessionLink& link) const {
    return mLink.get() == &link && isRunning();
}

void SimulatedClient::onLinked(const SessionLink& link, int sessionId) {
    const std::lock_guard lock(mMutex);
    if (!isRunningOn(link)) return;
    mLinked = true;
    mSession->id = sessionId;
    establish();
}

void SimulatedClient::onMessage(const SessionLink& link, const LinkMessage& message) {
    std::unique_lock lock(mMutex);
    if (!isRunningOn(link) || mClosed) return;
    if (message.kind != LinkMessage::Kind::Input) {
        carryOut(message.kind);
        return;
    }
    const bool started = mSession->uibcStarted;
    lock.unlock();
    const bool taken = started && deliverInput(message.input);
    Journal::instance().addFormatted("link", "source: input of type %u %s", message.input.type,
                                     taken     ? "taken"
                                     : started ? "refused"
                                               : "refused: UIBC is not started");
}

void SimulatedClient::onLost(const SessionLink& link) {
    const std::lock_guard lock(mMutex);
    if (isRunningOn(link)) endUnreachable();
}

void SimulatedClient::enqueue(Report report) {
    if (mClosed) return;
    mPending.push_back(std::move(report));
    if (mReporting) return;
    mReporting = startSmallThread([this] { deliverPending(); }) == 0;
    if (!mReporting) Journal::instance().add("session", "no thread to report on");
}

void SimulatedClient::enqueueState(const char* state, std::chrono::milliseconds delay) {
    std::vector<std::string> objects{state, mSession->peer.ipAddress};
    objects.push_back(std::to_string(mSession->id));
    enqueue({"SessionState", std::move(objects), state, delay});
}

void SimulatedClient::deliverPending() {
    std::unique_lock lock(mMutex);
    while (!mPending.empty()) {
        const Report report = std::move(mPending.front());
        mPending.pop_front();
        if (report.delay.count() > 0) {
            mChanged.wait_for(lock, realDuration(report.delay), [this] { return mClosed; });
        }
        if (mClosed) break;
        const bool last = report.state == "STOPPED";
        if (!report.state.empty()) mSession->state = report.state;
        if (last) mSession->active = false;
        lock.unlock();
        deliver(report);
        lock.lock();
        if (last && !mSession->active) {  // not when the callback has begun another session
            mSession->surface.clear();
            mSession->producer.clear();
        }
    }
    mReporting = false;
    mChanged.notify_all();
}

void SimulatedClient::deliver(const Report& report) const {
    std::string text = report.name;
    const size_t count = report.objects.size();
    std::vector<std::array<char, 256>> objects(count);
    for (size_t i = 0; i < count; ++i) {
        text += (i == 0 ? ": " : ", ") + report.objects[i];
        // At most 255 characters, and the end that the zeroed array already has.
        memcpy(objects[i].data(), report.objects[i].data(),
               std::min(report.objects[i].size(), objects[i].size() - 1));
    }
    Journal::instance().add("report", text);
    if (mEventCallback == nullptr) return;
    mEventCallback(report.name.c_str(), static_cast<int>(count),
                   reinterpret_cast<char(*)[256]>(objects.data()), nullptr);
}

}  // namespace hostplatform
