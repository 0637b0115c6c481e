#include "SessionService.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>

#include "Faults.h"
#include "Journal.h"
#include "SimulatedClient.h"
#include "TextFormat.h"

namespace hostplatform {

namespace {

struct Service {
    std::mutex linking;  // one session at a time gives the others up and begins to wait itself
    std::mutex mutex;    // guards everything below
    PeerSettings settings;
    int nextSessionId = 10000001;
    bool closed = false;
    // Clients and the memory of their WiFiDisplayClients, which their owner never destroys.
    std::vector<SimulatedClient*> clients;
    std::vector<void*> memory;
};

Service& service() {
    static auto* const instance = new Service;
    return *instance;
}

std::vector<SimulatedClient*> allClients() {
    const std::lock_guard lock(service().mutex);
    return service().clients;
}

SimulatedClient* newestClient() {
    const std::lock_guard lock(service().mutex);
    return service().clients.empty() ? nullptr : service().clients.back();
}

WFD_uibc_event_t inputEvent(uint32_t type, uint32_t action) {
    WFD_uibc_event_t event{};
    event.type = type;
    memcpy(event.params, &action, sizeof action);
    return event;
}

}  // namespace

void setPeer(Peer peer, std::chrono::milliseconds delay) {
    const std::lock_guard lock(service().mutex);
    service().settings.peer = peer;
    service().settings.delay = delay;
}

void setStream(uint32_t width, uint32_t height, bool secure) {
    const std::lock_guard lock(service().mutex);
    service().settings.width = width;
    service().settings.height = height;
    service().settings.secure = secure;
}

void setNextSessionId(int id) {
    const std::lock_guard lock(service().mutex);
    service().nextSessionId = id;
}

std::optional<SessionState> currentSession() {
    const SimulatedClient* const client = newestClient();
    return client == nullptr ? std::nullopt : client->session();
}

int clientCount() { return static_cast<int>(allClients().size()); }

std::vector<SessionState> allSessions() {
    std::vector<SessionState> sessions;
    for (const SimulatedClient* const client : allClients()) {
        if (auto session = client->session()) sessions.push_back(std::move(*session));
    }
    return sessions;
}

bool injectInput(const WFD_uibc_event_t& event) {
    const std::vector<SimulatedClient*> clients = allClients();
    const bool sent = std::any_of(clients.rbegin(), clients.rend(), [&](SimulatedClient* client) {
        return client->sendInput(event);
    });
    if (sent) return true;
    const auto started =
        std::find_if(clients.rbegin(), clients.rend(),
                     [](const SimulatedClient* client) { return client->uibcStarted(); });
    return started != clients.rend() && (*started)->deliverInput(event);
}

WFD_uibc_event_t keyEvent(uint16_t keysym, uint32_t action) {
    WFD_uibc_event_t event = inputEvent(1, action);
    memcpy(event.params + 4, &keysym, sizeof keysym);
    return event;
}

WFD_uibc_event_t touchEvent(uint32_t action) { return inputEvent(0, action); }

bool report(const std::string& name, const std::vector<std::string>& objects) {
    SimulatedClient* const client = newestClient();
    if (client != nullptr) client->report(name, objects);
    return client != nullptr;
}

bool waitReported(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const std::vector<SimulatedClient*> clients = allClients();
    return std::all_of(clients.begin(), clients.end(), [deadline](SimulatedClient* client) {
        return client->waitReported(deadline);
    });
}

void shutdownSessions() {
    {
        const std::lock_guard lock(service().mutex);
        service().closed = true;
    }
    const std::vector<SimulatedClient*> clients = allClients();
    for (SimulatedClient* const client : clients) client->close();
    // A delivery can be inside the library's own waits, of up to 3 seconds.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (SimulatedClient* const client : clients) {
        client->waitReported(deadline);
        client->waitLinksEnded(deadline);
    }
}

}  // namespace hostplatform

using namespace hostplatform;

void* WiFiDisplayClient::operator new(std::size_t size, const std::nothrow_t&) noexcept {
    void* const memory =
        faultStatus(Fault::SessionClient) != 0 ? nullptr : ::operator new(size, std::nothrow);
    if (memory == nullptr) {
        Journal::instance().add("session", "no client");
        return nullptr;
    }
    const std::lock_guard lock(service().mutex);
    service().memory.push_back(memory);
    return memory;
}

void WiFiDisplayClient::operator delete(void* memory) noexcept {
    {
        const std::lock_guard lock(service().mutex);
        auto& all = service().memory;
        all.erase(std::remove(all.begin(), all.end(), memory), all.end());
    }
    ::operator delete(memory);
}

void WiFiDisplayClient::operator delete(void* memory, const std::nothrow_t&) noexcept {
    operator delete(memory);
}

WiFiDisplayClient::WiFiDisplayClient(WfdEventCallback eventCallback, WfdUibcCallback uibcCallback,
                                     WfdHidCallback /*hidCallback*/)
    : mImpl([&] {
          const std::lock_guard lock(service().mutex);
          auto& clients = service().clients;
          clients.push_back(new SimulatedClient(static_cast<int>(clients.size()) + 1, eventCallback,
                                                uibcCallback));
          Journal::instance().addFormatted("session", "client %zu made", clients.size());
          return clients.back();
      }()) {}

int WiFiDisplayClient::createWfdSession(WfdDevice* local, WfdDevice* peer) {
    PeerSettings settings;
    int id = 0;
    {
        const std::lock_guard lock(service().mutex);
        if (service().closed) return -1;
        settings = service().settings;
        id = service().nextSessionId++;
    }
    if (settings.peer != Peer::Linked) return mImpl->create(*local, *peer, id, settings);
    // Whoever began a session here and never met its peer has no way to end it.
    const std::lock_guard lock(service().linking);
    for (SimulatedClient* const client : allClients()) client->giveUpWaiting(local->deviceType);
    return mImpl->create(*local, *peer, id, settings);
}

int WiFiDisplayClient::stopWfdSession(int sessionId, _JNIEnv*) { return mImpl->stop(sessionId); }

int WiFiDisplayClient::teardown_rtsp(int sessionId, bool flag) {
    return mImpl->teardown(sessionId, flag);
}

int WiFiDisplayClient::pause_rtsp(int sessionId, bool flag) {
    return mImpl->pause(sessionId, flag);
}

int WiFiDisplayClient::play_rtsp(int sessionId, bool flag) { return mImpl->play(sessionId, flag); }

int WiFiDisplayClient::standby_rtsp(int sessionId) { return mImpl->standby(sessionId); }

int WiFiDisplayClient::sendAvFormatChange(int codec, int profile, int arg3, int arg4, int arg5,
                                          int* resolution, int count) {
    std::string rest = format("%d %d %d resolution", arg3, arg4, arg5);
    for (int i = 0; i < count; ++i) rest += format(" %d", resolution[i]);
    return mImpl->changeFormat(codec, profile, rest);
}

int WiFiDisplayClient::negotiateRtpTransport(int transport, int arg2, int arg3) {
    return mImpl->negotiateTransport(transport, arg2, arg3);
}

int WiFiDisplayClient::executeRuntimeCommand(int command) { return mImpl->runCommand(command); }

int WiFiDisplayClient::sendIDRRequest() { return mImpl->requestIdr(); }

int WiFiDisplayClient::startUIBC() { return mImpl->startUibc(); }

int WiFiDisplayClient::enableUIBC(int sessionId) { return mImpl->enableUibc(sessionId); }

int WiFiDisplayClient::setSurface(android::Surface* surface) { return mImpl->setSurface(surface); }
