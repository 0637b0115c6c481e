#include "wfd/WiFiDisplayClient.h"

#include "host/SimulatedDevice.h"
#include "host/text_format.h"

using namespace hostplatform;

class WiFiDisplayClient::Impl : public SimulatedClient {
 public:
    using SimulatedClient::SimulatedClient;
};

WiFiDisplayClient::WiFiDisplayClient(WfdEventCallback eventCallback, WfdUibcCallback uibcCallback,
                                     WfdHidCallback /*hidCallback*/)
    : mImpl(new Impl(device().session().common(), this, eventCallback, uibcCallback)) {
    device().session().add(mImpl);
}

int WiFiDisplayClient::createWfdSession(WfdDevice* local, WfdDevice* peer) {
    return device().session().create(*mImpl, *local, *peer);
}

int WiFiDisplayClient::stopWfdSession(int sessionId, _JNIEnv*) { return mImpl->stop(sessionId); }

int WiFiDisplayClient::teardown_rtsp(int sessionId, bool flag) {
    return mImpl->request(format("teardown_rtsp flag %d", flag), sessionId, "teardown");
}

int WiFiDisplayClient::pause_rtsp(int sessionId, bool flag) {
    return mImpl->request(format("pause_rtsp flag %d", flag), sessionId, "pause");
}

int WiFiDisplayClient::play_rtsp(int sessionId, bool flag) {
    return mImpl->request(format("play_rtsp flag %d", flag), sessionId, "play");
}

int WiFiDisplayClient::standby_rtsp(int sessionId) {
    return mImpl->request("standby_rtsp", sessionId, "standby");
}

int WiFiDisplayClient::sendAvFormatChange(int codec, int profile, int arg3, int arg4, int arg5,
                                          int* resolution, int count) {
    std::string call = format("sendAvFormatChange codec %d profile %d %d %d %d resolution", codec,
                              profile, arg3, arg4, arg5);
    for (int i = 0; i < count; ++i) call += format(" %d", resolution[i]);
    return mImpl->control(call);
}

int WiFiDisplayClient::negotiateRtpTransport(int transport, int arg2, int arg3) {
    return mImpl->control(format("negotiateRtpTransport %d (%s) %d %d", transport,
                                 transport == 1 ? "TCP" : "UDP", arg2, arg3));
}

int WiFiDisplayClient::executeRuntimeCommand(int command) {
    return mImpl->control(format("executeRuntimeCommand %d", command));
}

int WiFiDisplayClient::sendIDRRequest() { return mImpl->control("sendIDRRequest"); }

int WiFiDisplayClient::startUIBC() {
    return mImpl->control("startUIBC", std::nullopt,
                          [](SessionState& session) { session.uibcStarted = true; });
}

int WiFiDisplayClient::enableUIBC(int sessionId) { return mImpl->enableUibc(sessionId); }

int WiFiDisplayClient::setSurface(android::Surface* surface) {
    android::sp<android::Surface> held = surface;
    const std::string call = surface == nullptr
                                 ? "setSurface null"
                                 : format("setSurface of layer %d", surface->layerId());
    // `held` releases the earlier surface after the call, when the mutex is no longer held.
    return mImpl->control(call, std::nullopt,
                          [&](SessionState& session) { std::swap(session.surface, held); });
}
