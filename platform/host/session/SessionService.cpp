#include "host/session/SessionService.h"

#include <algorithm>

#include "host/text_format.h"

namespace hostplatform {

void SessionService::setPeer(Peer peer, std::chrono::milliseconds delay) {
    const Lock lock(mCommon.mutex);
    mPeer = peer;
    mDelay = delay;
}

void SessionService::setNextSessionId(int id) {
    const Lock lock(mCommon.mutex);
    mNextSessionId = id;
}

std::optional<SessionState> SessionService::current() {
    const Lock lock(mCommon.mutex);
    return mClients.empty() ? std::nullopt : mClients.back()->session();
}

std::vector<SessionState> SessionService::all() {
    const Lock lock(mCommon.mutex);
    std::vector<SessionState> sessions;
    for (const SimulatedClient* const client : mClients) {
        if (client->session()) sessions.push_back(*client->session());
    }
    return sessions;
}

int SessionService::clientCount() {
    const Lock lock(mCommon.mutex);
    return static_cast<int>(mClients.size());
}

bool SessionService::injectInput(const WFD_uibc_event_t& event) {
    Lock lock(mCommon.mutex);
    for (auto newest = mClients.rbegin(); newest != mClients.rend(); ++newest) {
        SimulatedClient* const client = *newest;  // without the lock the list may grow
        if (client->sendInput(event)) return true;
        if (!client->takesInput()) continue;
        lock.unlock();
        return client->deliverInput(event);
    }
    return false;
}

bool SessionService::report(const std::string& name, const std::vector<std::string>& objects) {
    const Lock lock(mCommon.mutex);
    if (!mClients.empty()) mClients.back()->report(name, objects);
    return !mClients.empty();
}

bool SessionService::allIdle(bool links) const {
    return std::all_of(mClients.begin(), mClients.end(),
                       [=](const SimulatedClient* client) { return client->isIdle(links); });
}

bool SessionService::waitReported(std::chrono::milliseconds timeout) {
    Lock lock(mCommon.mutex);
    return mCommon.changed.wait_for(lock, timeout,
                                    [this]() REQUIRES(mCommon.mutex) { return allIdle(false); });
}

void SessionService::shutdown() {
    Lock lock(mCommon.mutex);
    mCommon.shutDown = true;
    for (SimulatedClient* const client : mClients) client->shutDown();
    mCommon.changed.notify_all();
    // A callback may wait inside the library, for up to 3 seconds.
    mCommon.changed.wait_for(lock, std::chrono::seconds(10),
                             [this]() REQUIRES(mCommon.mutex) { return allIdle(true); });
}

void SessionService::add(SimulatedClient* client) {
    const Lock lock(mCommon.mutex);
    mClients.push_back(client);
    mCommon.core.journal.add("session", format("client %zu made", mClients.size()));
}

int SessionService::create(SimulatedClient& client, const WfdDevice& local, const WfdDevice& peer) {
    const int fault = mCommon.core.faults.next(Fault::SessionCreation);
    const Lock lock(mCommon.mutex);
    if (mCommon.shutDown) return -1;
    // End the old sessions whose peer never came: the library does not stop them.
    for (SimulatedClient* const waiting : mClients) waiting->endWaiting(local.deviceType == 0);
    return client.create(local, peer, mNextSessionId++, mPeer, mDelay, fault);
}

}  // namespace hostplatform
