// dev_send_frame: RTSP requests of the running session.
#include <cstdio>

#include "Parameter.h"
#include "c_text.h"
#include "miracast_sigma.h"
#include "sigma_log.h"

namespace {

using Text = Parameter<32>;

constexpr int kUdp = 0;
constexpr int kTcp = 1;

int sendSetParameter(const char* command, int sessionId) {
    Text action(command, "SetParameter");
    const Text transport(command, "TransportType");
    if (action.empty() && transport.empty()) return MIRACAST_NOTHING_DONE;
    if (action.is("Standby")) {
        standbyRtsp(sessionId);
        return MIRACAST_ACTION_DONE;
    }
    if (action.is("CapReNego")) {
        action.read(command, "CapReNegotiateCodecProfile");
        if (action.empty()) action.read(command, "CapReNegotiateProfile");
        if (setParameter(sessionId, 0, action.text()) != 0) {
            printf("Failed set param \n");
            return MIRACAST_NOTHING_DONE;
        }
    }
    if (transport.is("tcp")) {
        transportswitch(sessionId, kTcp);
        printf("requested tcp switch\n");
    } else if (transport.is("udp")) {
        transportswitch(sessionId, kUdp);
        printf("requested udp switch\n");
    }
    return MIRACAST_ACTION_DONE;
}

}  // namespace

int dev_send_frame(const char* command) noexcept {
    SIGMA_LOG("vestor: Received Dev Send Frame %s", printable(command));
    const Text frameName(command, "framename");
    // Except the type, the parameters from source to sessionText are read for the log only: the
    // command always acts on the current session.
    const Text source(command, "source");
    const Text destination(command, "destination");
    const Text deviceType(command, "DevType");
    const Text type(command, "RtspMsgType");
    const Text sessionText(command, "WfdSessionID");
    if (!frameName.is("RTSP")) return MIRACAST_COMPLETED;

    // Read the identifier once, so that the whole command acts on one session.
    const int sessionId = g_wfd_session_id;
    if (sessionId == 0) {
        printf("Obtained Session ID: %d \n", sessionId);
        printf("No session in Progress\n");
        return MIRACAST_ERROR;
    }
    printf("WFD ID = %d Command Name = %s\n", sessionId, type.text());

    if (type.is("PAUSE") || type.is("TRIGGER-PAUSE")) {
        pauseRtsp(sessionId);
    } else if (type.is("PLAY") || type.is("TRIGGER-PLAY")) {
        playRtsp(sessionId);
    } else if (type.is("TEARDOWN") || type.is("TRIGGER-TEARDOWN")) {
        teardownRtsp(sessionId, 1);
    } else if (type.is("SET_PARAMETER")) {
        return sendSetParameter(command, sessionId);
    } else if (type.is("SETUP")) {
        transportswitch(sessionId, kTcp);
    } else {
        return MIRACAST_NOTHING_DONE;
    }
    return MIRACAST_ACTION_DONE;
}
