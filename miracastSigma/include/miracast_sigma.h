/*
 * libmiracastSigma.so: Wi-Fi Display test commands of the Sigma control interface (CAPI).
 *
 * A control agent loads the library, passes the parameters of a CAPI command to the function of the
 * same name, and turns the returned status into the controller's answer.
 *
 * Command texts. Most commands take their parameters as one NUL-terminated text of comma-separated
 * names, each followed by its value ("framename,RTSP,RtspMsgType,PAUSE"). Names are found without
 * regard to case. The text is never modified. A null text has no parameters.
 *
 * Response texts. A command that answers with a text stores the text's address in *response, also
 * when its status is a failure other than -1. The caller releases the text with free(). With status
 * -1 the command stores a null pointer.
 *
 * Threads. Call one command at a time, on any thread; the session commands block while a session
 * comes up. The session client calls into the library on threads of its own.
 *
 * Process. Once loaded, the library stays until the process ends: dlclose does not unload it. No
 * function throws. A write of the library to the mDNS daemon or to a peer never raises SIGPIPE in
 * the agent; the signal's disposition stays as the agent set it.
 */
#ifndef MIRACAST_SIGMA_H
#define MIRACAST_SIGMA_H

#include <pthread.h>
#include <stdint.h>

#define MIRACAST_SIGMA_EXPORT __attribute__((visibility("default")))

/* An atomic variable with the size and layout of the plain type. */
#ifdef __cplusplus
#include <atomic>
#define MIRACAST_SIGMA_NOEXCEPT noexcept
#define MIRACAST_SIGMA_ATOMIC(type) std::atomic<type>
class WiFiDisplayClient;
typedef WiFiDisplayClient* MiracastSigmaClient;
extern "C" {
#else
#define MIRACAST_SIGMA_NOEXCEPT
#define MIRACAST_SIGMA_ATOMIC(type) _Atomic(type)
typedef struct WiFiDisplayClient* MiracastSigmaClient;
#endif

/* The status of a command. */
enum {
    MIRACAST_COMPLETED = 0,      /* done, or nothing to do */
    MIRACAST_ACTION_DONE = 1,    /* the action was carried out */
    MIRACAST_NOTHING_DONE = 2,   /* nothing to do for these parameters, or the action failed */
    MIRACAST_ERROR = -1,         /* no session, no memory, a missing response address, ... */
    MIRACAST_BAD_PARAMETER = -2, /* a required parameter is missing or has an unknown value */
};

/* Device types: a device's role in a session. */
enum { MIRACAST_SOURCE = 0, MIRACAST_PRIMARY_SINK = 1 };

/* Passed as the port: discover the peer and its port (Wi-Fi Display R2). */
enum { MIRACAST_DISCOVER_PEER = -100 };

/* --- Commands ------------------------------------------------------------------------------- */

/*
 * Ends the session: tears a running one down, deletes a sink's surface and starts the binder thread
 * pool. A text that contains "DisplayR2" (in any case) selects Wi-Fi Display R2, any other text the
 * first version; a null text keeps the version. Takes one second. Returns 0.
 */
MIRACAST_SIGMA_EXPORT int sta_reset_default(const char* command) MIRACAST_SIGMA_NOEXCEPT;

/*
 * Prepares the device for a test and ends its earlier registration and discovery. With "mdns_disc"
 * enable and "mdns_role" responder it registers the device with DNS-SD as the p-sink or source that
 * "wfddevtype" names, waits up to 10 seconds, and answers the instance name that the daemon
 * registered, or an empty text when the daemon reported none. With other parameters *response
 * becomes null. A registered sink starts a session, in the role wfd_device_type, with each source
 * that asks it to connect. Returns 0; -1 without a response address or without memory.
 */
MIRACAST_SIGMA_EXPORT int sta_preset_testparameters(const char* command,
                                                    char** response) MIRACAST_SIGMA_NOEXCEPT;

/*
 * Starts a session with a peer and answers the session's identifier ("%.8d").
 *   passThroughText  not used; may be null
 *   peerAddress      the peer's IPv4 address, dotted decimal; may be null
 *   port             the peer's RTSP control port, or MIRACAST_DISCOVER_PEER
 *   peerDeviceType   0: the peer is a source, 1: the peer is a primary sink; this device takes the
 *                    other role and stores it in wfd_device_type
 *   response         receives the identifier's text
 * Blocks for up to about 60 seconds, until the session is established. A discovery takes up to 60
 * seconds before that. A source then asks the sink that it found to connect: that takes up to about
 * 10 seconds when the sink refuses connections, and two more blocking connects when the network
 * drops its packets, which take minutes with the kernel's default limits. When the discovery finds
 * no peer, a source goes on with port 7236, a sink with -100. Returns the session client's result,
 * or -1 without a response address, without memory, without a client, or when no session came up.
 */
MIRACAST_SIGMA_EXPORT int start_wfd_connection(const char* passThroughText, const char* peerAddress,
                                               int port, int peerDeviceType,
                                               char** response) MIRACAST_SIGMA_NOEXCEPT;

/* Like start_wfd_connection, but keeps wfd_device_type and discovers no peer. */
MIRACAST_SIGMA_EXPORT int connect_go_start_wfd(const char* passThroughText, const char* peerAddress,
                                               int port, int peerDeviceType,
                                               char** response) MIRACAST_SIGMA_NOEXCEPT;

/*
 * Sends an RTSP request of the running session. "framename" must be "RTSP". "RtspMsgType" is PAUSE,
 * PLAY, TEARDOWN (each also with "TRIGGER-" before it), SETUP or SET_PARAMETER. SET_PARAMETER takes
 * "SetParameter" (Standby, or CapReNego with "CapReNegotiateCodecProfile" or
 * "CapReNegotiateProfile") and "TransportType" (tcp, udp). Returns 0 for a frame that is not RTSP,
 * 1 when the request was made, 2 when there is nothing to request or the renegotiation was refused,
 * -1 without a session.
 */
MIRACAST_SIGMA_EXPORT int dev_send_frame(const char* command) MIRACAST_SIGMA_NOEXCEPT;

/*
 * Starts or stops direct streaming: "DirectStreaming" is Start, with "CodecProfile" H264-0 or
 * H264-1, or Stop. Returns 1, or -2 when a parameter is missing or unknown.
 */
MIRACAST_SIGMA_EXPORT int dev_exec_action(const char* command) MIRACAST_SIGMA_NOEXCEPT;

/*
 * Without "UIBCEventType": a sink asks the source for an IDR frame when "Type" is IdrReq. With
 * "UIBCEventType" (Mouse, KeyBoard): a source calls setUpUibc, then the command waits 10 seconds
 * for the sink's user input. Returns 0, or 2 for an unknown "Type".
 */
MIRACAST_SIGMA_EXPORT int sta_generate_event(const char* command) MIRACAST_SIGMA_NOEXCEPT;

/*
 * Copies the value of the first parameter called `name` (in any case, also inside a longer token)
 * into `value`, a buffer of `size` bytes. A value that does not fit, or is longer than 511
 * characters, leaves the buffer as it was. Returns 0 when the name was found, else -1.
 */
MIRACAST_SIGMA_EXPORT int get_param(const char* command, const char* name, char* value,
                                    int size) MIRACAST_SIGMA_NOEXCEPT;

/* Starts the binder thread pool through which the session service calls back. Harmless when the
 * pool runs already. */
MIRACAST_SIGMA_EXPORT void createpool(void) MIRACAST_SIGMA_NOEXCEPT;

/* --- Session -------------------------------------------------------------------------------- */

/*
 * Makes a new session client and lets it create a session. `sessionIdOut` is null, or a buffer of
 * at least 12 bytes for the identifier's text, for which the call then waits up to about 60 seconds
 * ("NULL" when none came). `localAddress` may be null. Returns the session client's result; -1 when
 * no identifier came or no client could be made.
 */
MIRACAST_SIGMA_EXPORT int startWfdConnection(const char* passThroughText, const char* peerAddress,
                                             int port, int peerDeviceType, char* sessionIdOut,
                                             const char* localAddress) MIRACAST_SIGMA_NOEXCEPT;

/* Control the running session: tear it down, pause, play, put it into standby. `sessionId` is
 * the session client's identifier; `flag` is passed on as true unless it is 0. Return 0 when the
 * session client got the request, whatever it answers, -1 without a client. */
MIRACAST_SIGMA_EXPORT int teardownRtsp(int sessionId, int flag) MIRACAST_SIGMA_NOEXCEPT;
MIRACAST_SIGMA_EXPORT int pauseRtsp(int sessionId) MIRACAST_SIGMA_NOEXCEPT;
MIRACAST_SIGMA_EXPORT int playRtsp(int sessionId) MIRACAST_SIGMA_NOEXCEPT;
MIRACAST_SIGMA_EXPORT int standbyRtsp(int sessionId) MIRACAST_SIGMA_NOEXCEPT;

/*
 * Changes the audio or video format to the codec that `text` names: H264 or H265, followed
 * somewhere by '-' and a profile, a character up to '5'; or LPCM or AAC. `sessionId` and `reserved`
 * are not used. Returns 0 when the session client got the request; -1 without a client or when the
 * text is refused.
 */
MIRACAST_SIGMA_EXPORT int setParameter(int sessionId, int reserved,
                                       const char* text) MIRACAST_SIGMA_NOEXCEPT;

/* Switches the RTP transport: 1 TCP, 0 UDP. `sessionId` is not used. Returns 0; -1 without a
 * client. */
MIRACAST_SIGMA_EXPORT int transportswitch(int sessionId, int transport) MIRACAST_SIGMA_NOEXCEPT;

/* Start direct streaming; ask the source for an IDR frame. Return the session client's result;
 * without a client enableDirectStreaming returns 0, sendIDRRequest -1. */
MIRACAST_SIGMA_EXPORT int enableDirectStreaming(void) MIRACAST_SIGMA_NOEXCEPT;
MIRACAST_SIGMA_EXPORT int sendIDRRequest(void) MIRACAST_SIGMA_NOEXCEPT;

/* Releases the sink's surface, if there is one. */
MIRACAST_SIGMA_EXPORT void deleteSurface(void) MIRACAST_SIGMA_NOEXCEPT;

/* --- User input back channel, playback ------------------------------------------------------ */

/* The first call starts the worker that injects received input; a later call empties the
 * worker's queue and waits one second. Returns 0, also when the worker could not be started
 * (logged). */
MIRACAST_SIGMA_EXPORT int setUpUibc(void) MIRACAST_SIGMA_NOEXCEPT;

/*
 * Waits 10 seconds for the sink's input. `kind`: 0 mouse, 1 keyboard, 2 HID keyboard. Returns 0, or
 * -1 at once for another kind.
 */
MIRACAST_SIGMA_EXPORT int cmd_generate_UIBCEvent(int kind) MIRACAST_SIGMA_NOEXCEPT;

/*
 * The first plays the clip `path` with the device's gallery on the caller's thread and returns
 * null. The second does so on a new joinable thread, whose handle it stores in
 * rtsp_playback_thread, and returns pthread_create's result. `path` must stay valid while the
 * thread runs.
 */
MIRACAST_SIGMA_EXPORT void* miracast_playback_thread_entry(void* path) MIRACAST_SIGMA_NOEXCEPT;
MIRACAST_SIGMA_EXPORT int miracast_playback_thread_create(void* path) MIRACAST_SIGMA_NOEXCEPT;

/* --- Discovery of an R2 peer --------------------------------------------------------------- */

/* The steps of sta_preset_testparameters and start_wfd_connection. A step with an int result
 * returns 0 unless its comment says otherwise. */

/* Empties instanceName and ends registration and discovery. */
MIRACAST_SIGMA_EXPORT void resetmDNSParams(void) MIRACAST_SIGMA_NOEXCEPT;

/* Register this device with DNS-SD, without waiting for the result: a source with port 7236, a
 * primary sink with the port of its trigger server, to which sources send their requests to
 * connect. */
MIRACAST_SIGMA_EXPORT int registerSource(void) MIRACAST_SIGMA_NOEXCEPT;
MIRACAST_SIGMA_EXPORT int registerPrimarySink(void) MIRACAST_SIGMA_NOEXCEPT;

/* Waits up to 10 seconds until instanceName is not empty. Returns instanceName itself. */
MIRACAST_SIGMA_EXPORT char* getInstanceName(void) MIRACAST_SIGMA_NOEXCEPT;

/* Starts to browse for devices of the role opposite to `deviceType` (0: source, else sink), and
 * resolves the first service that is found. */
MIRACAST_SIGMA_EXPORT int discovermDNSPeer(int deviceType) MIRACAST_SIGMA_NOEXCEPT;

/* Waits up to 60 seconds for a peer's IPv4 address in actualvalues, then stops the discovery.
 * Returns -1 when no address came. */
MIRACAST_SIGMA_EXPORT int waitforDiscovery(void) MIRACAST_SIGMA_NOEXCEPT;

/* Copies the last resolved peer's address into `address`, a buffer of `size` bytes (cut to fit,
 * NUL-terminated), and its port into *port. Either pointer may be null. */
MIRACAST_SIGMA_EXPORT int getmDNSPeerIPandPort(char* address, int size,
                                               int* port) MIRACAST_SIGMA_NOEXCEPT;

/* Asks the last resolved peer, a sink, to connect to `localPort` of this host. `localAddress` is
 * not sent. */
MIRACAST_SIGMA_EXPORT int triggerSinkConnection(const char* localAddress,
                                                int localPort) MIRACAST_SIGMA_NOEXCEPT;

/* Browses for primary sinks for 20 seconds. */
MIRACAST_SIGMA_EXPORT int discoverPrimarySink(void) MIRACAST_SIGMA_NOEXCEPT;

/* --- Shared test state ---------------------------------------------------------------------- */

/* Default RTSP session-management control port, for the agent; the library does not use it. */
MIRACAST_SIGMA_EXPORT extern int32_t session_management_control_port;

/* 1, or 2 for Wi-Fi Display R2. Set by sta_reset_default. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) wfd_version;

/* This device's role: MIRACAST_SOURCE or MIRACAST_PRIMARY_SINK. Set by start_wfd_connection. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) wfd_device_type;

/* Identifier of the current session, 0 when there is none. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) g_wfd_session_id;

/* The identifier as the session client reported it; written before g_wfd_session_id is set. */
MIRACAST_SIGMA_EXPORT extern char wfdSessionId[12];

/* The newest session client; earlier ones are never destroyed. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(MiracastSigmaClient) gWFDClient;

/* The UIBC worker. uibc_setup_done is 1 once setUpUibc has tried to start it; uibc_complete_flag
 * set to 1 ends it; uibc_worker_handle is its thread. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) uibc_setup_done;
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) uibc_complete_flag;
MIRACAST_SIGMA_EXPORT extern pthread_t uibc_worker_handle;

/* The last playback thread. It is joinable; the library does not join it. */
MIRACAST_SIGMA_EXPORT extern pthread_t rtsp_playback_thread;

/* The DNS-SD instance name of this device's last registration; resetmDNSParams empties it.
 * Another thread writes it each time the daemon reports the name. sta_preset_testparameters
 * answers a copy. */
MIRACAST_SIGMA_EXPORT extern char instanceName[64];

/* The last resolved R2 peer: 192 bytes, declared in MDnsWfdServiceInfo.h. Until resetmDNSParams
 * another thread writes it for each IPv4 address of the peer; getmDNSPeerIPandPort gives a copy. */
struct MDnsWfdServiceInfo;
MIRACAST_SIGMA_EXPORT extern struct MDnsWfdServiceInfo actualvalues;

/* Variables of the agent; the library neither reads nor writes them. */
MIRACAST_SIGMA_EXPORT extern void* cmd;
MIRACAST_SIGMA_EXPORT extern void* conn;
MIRACAST_SIGMA_EXPORT extern void* dut;
MIRACAST_SIGMA_EXPORT extern int32_t exitcode;
MIRACAST_SIGMA_EXPORT extern char wfd_ifname[32];

#ifdef __cplusplus
}
#endif

#endif
