/*
 * libmiracastSigma.so: Wi-Fi Display test commands of the Sigma control interface (CAPI).
 *
 * A control agent loads the library, hands the parameters of a CAPI command to the function of the
 * same name, and turns the status it returns into the controller's answer.
 *
 * Command texts. Most commands take their parameters as one NUL-terminated text of comma-separated
 * names, each followed by its value ("framename,RTSP,RtspMsgType,PAUSE"). Names are found without
 * regard to case. The text is never modified. A null text has no parameters.
 *
 * Status. 0: done, or nothing to do. 1: the action was carried out. 2: nothing that the command can
 * do for these parameters, or the action failed. -1: error. -2: a required parameter is missing or
 * has an unknown value.
 *
 * Response texts. A command that answers with a text stores its address through `response`; the
 * caller releases it with free(), also when the status is a failure other than -1; with -1 a null
 * pointer is stored.
 *
 * Threads. Call one command at a time, on any one thread; the session commands block while a
 * session comes up. The session client calls into the library on threads of its own.
 */
#ifndef MIRACAST_SIGMA_H
#define MIRACAST_SIGMA_H

#include <pthread.h>
#include <stdint.h>

#define MIRACAST_SIGMA_EXPORT __attribute__((visibility("default")))

/* A word that one thread writes while another reads it: of the plain type's size and layout. */
#ifdef __cplusplus
#include <atomic>
#define MIRACAST_SIGMA_ATOMIC(type) std::atomic<type>
class WiFiDisplayClient;
typedef WiFiDisplayClient* MiracastSigmaClient;
extern "C" {
#else
#define MIRACAST_SIGMA_ATOMIC(type) _Atomic(type)
typedef struct WiFiDisplayClient* MiracastSigmaClient;
#endif

/* --- Commands ------------------------------------------------------------------------------- */

/*
 * Brings the device back to a state without a session: tears a running one down, deletes a sink's
 * surface and starts the binder thread pool. A text that contains "DisplayR2" (in any case) selects
 * Wi-Fi Display R2, any other text the first version; a null text keeps the version. Takes one
 * second. Returns 0.
 */
MIRACAST_SIGMA_EXPORT int sta_reset_default(const char* command);

/*
 * Hands the device a test's parameters. Ends an earlier registration and discovery of this device.
 * With "mdns_disc" enable and "mdns_role" responder the device registers itself with DNS-SD as what
 * "wfddevtype" says, p-sink or source, and the instance name under which it is registered is the
 * answer: an empty text when there is none after 10 seconds. A registered sink starts a session
 * with each source that asks it to connect, in the role that wfd_device_type says. Without an
 * answer `response` receives null. Returns 0; -1 without a response address or without memory.
 */
MIRACAST_SIGMA_EXPORT int sta_preset_testparameters(const char* command, char** response);

/*
 * Starts a session with a peer and answers its identifier ("%.8d").
 *   passThroughText  not looked at
 *   peerAddress      the peer's IPv4 address, dotted decimal; may be null
 *   port             the peer's RTSP control port; -100: discover the peer (Wi-Fi Display R2)
 *   peerDeviceType   0: the peer is a source, 1: the peer is a primary sink; this device takes the
 *                    other role, in wfd_device_type
 *   response         receives the identifier
 * Blocks for up to about 60 seconds, until the session is established. A discovery takes up to 60
 * seconds before that; when it finds a sink, the sink is asked to connect, which takes up to about
 * 10 seconds; when it finds no peer, a source goes on with port 7236, a sink with -100. Returns the
 * session client's result, or -1 without a response address, without memory, without a client, or
 * when no session came up.
 */
MIRACAST_SIGMA_EXPORT int start_wfd_connection(const char* passThroughText, const char* peerAddress,
                                               int port, int peerDeviceType, char** response);

/* As start_wfd_connection, but leaves wfd_device_type as it is and discovers nobody. */
MIRACAST_SIGMA_EXPORT int connect_go_start_wfd(const char* passThroughText, const char* peerAddress,
                                               int port, int peerDeviceType, char** response);

/*
 * Sends an RTSP request of the running session: "framename" must be "RTSP", "RtspMsgType" is PAUSE,
 * PLAY, TEARDOWN (each also with "TRIGGER-" before it), SETUP or SET_PARAMETER; the last with
 * "SetParameter" (Standby, or CapReNego with "CapReNegotiateCodecProfile" or
 * "CapReNegotiateProfile") and "TransportType" (tcp, udp). Returns 0 for a frame that is not RTSP,
 * 1 when the request was made, 2 when there is nothing to request or the renegotiation was refused,
 * -1 without a session.
 */
MIRACAST_SIGMA_EXPORT int dev_send_frame(const char* command);

/*
 * Direct streaming: "DirectStreaming" is Start, with "CodecProfile" H264-0 or H264-1, or Stop.
 * Returns 1, or -2 when a parameter is missing or unknown.
 */
MIRACAST_SIGMA_EXPORT int dev_exec_action(const char* command);

/*
 * Without "UIBCEventType": "Type" IdrReq asks the source for an IDR frame (sinks only). With it
 * (Mouse, KeyBoard): a source prepares for the sink's user input; waits 10 seconds while it
 * arrives. Returns 0, or 2 for an unknown "Type".
 */
MIRACAST_SIGMA_EXPORT int sta_generate_event(const char* command);

/*
 * Copies the value of the first parameter called `name` (in any case, also inside a longer token)
 * into `value`, a buffer of `size` bytes. A value that does not fit, or is longer than 511
 * characters, leaves the buffer as it was. Returns 0 when the name was found, else -1.
 */
MIRACAST_SIGMA_EXPORT int get_param(const char* command, const char* name, char* value, int size);

/* Starts the binder thread pool through which the session service calls back. Harmless when it
 * runs. */
MIRACAST_SIGMA_EXPORT void createpool(void);

/* --- Session -------------------------------------------------------------------------------- */

/*
 * Makes a new session client and lets it create a session. `sessionIdOut` is null, or a buffer of
 * at least 12 bytes for the identifier's text, for which the call then waits up to about 60 seconds
 * ("NULL" when none came). `localAddress` may be null. Returns the session client's result; -1 when
 * no identifier came or no client could be made.
 */
MIRACAST_SIGMA_EXPORT int startWfdConnection(const char* passThroughText, const char* peerAddress,
                                             int port, int peerDeviceType, char* sessionIdOut,
                                             const char* localAddress);

/* Controls of the running session. 0 once handed to the session client, -1 when there is none. */
MIRACAST_SIGMA_EXPORT int teardownRtsp(int sessionId, int flag);
MIRACAST_SIGMA_EXPORT int pauseRtsp(int sessionId);
MIRACAST_SIGMA_EXPORT int playRtsp(int sessionId);
MIRACAST_SIGMA_EXPORT int standbyRtsp(int sessionId);

/*
 * Changes the audio or video format to that of `text`: a codec (H264, H265, LPCM, AAC; H26x
 * followed somewhere by '-' and a profile, a character up to '5'). `sessionId` and `reserved` are
 * not used. -1 also when the text is refused.
 */
MIRACAST_SIGMA_EXPORT int setParameter(int sessionId, int reserved, const char* text);

/* Switches the RTP transport: 1 TCP, 0 UDP. `sessionId` is not used. */
MIRACAST_SIGMA_EXPORT int transportswitch(int sessionId, int transport);

/* The session client's own results; without a client 0 and -1. */
MIRACAST_SIGMA_EXPORT int enableDirectStreaming(void);
MIRACAST_SIGMA_EXPORT int sendIDRRequest(void);

/* Releases the sink's surface, if there is one. */
MIRACAST_SIGMA_EXPORT void deleteSurface(void);

/* --- User input back channel, playback ------------------------------------------------------ */

/* The first call starts the worker that injects received input; a later one empties its queue. */
MIRACAST_SIGMA_EXPORT int setUpUibc(void);

/*
 * Waits 10 seconds for the sink's input. `kind`: 0 mouse, 1 keyboard, 2 HID keyboard. Returns 0, or
 * -1 at once for another kind.
 */
MIRACAST_SIGMA_EXPORT int cmd_generate_UIBCEvent(int kind);

/*
 * The playback thread's routine, and its start as a joinable thread whose handle goes to
 * rtsp_playback_thread. `path` names the clip and must stay valid while the thread runs. The start
 * returns pthread_create's result.
 */
MIRACAST_SIGMA_EXPORT void* miracast_playback_thread_entry(void* path);
MIRACAST_SIGMA_EXPORT int miracast_playback_thread_create(void* path);

/* --- Discovery of an R2 peer --------------------------------------------------------------- */

/* The steps that sta_preset_testparameters and start_wfd_connection are made of. Those returning
 * int return 0 where nothing else is said. */

/* Empties instanceName, and ends registration and discovery. */
MIRACAST_SIGMA_EXPORT void resetmDNSParams(void);

/* Register this device, without waiting: a source with port 7236, a primary sink with the port on
 * which it can be asked to connect. */
MIRACAST_SIGMA_EXPORT int registerSource(void);
MIRACAST_SIGMA_EXPORT int registerPrimarySink(void);

/* instanceName, once there is a name in it, or after 10 seconds. */
MIRACAST_SIGMA_EXPORT char* getInstanceName(void);

/* Begins to look for the counterpart of a device type (0: source, else sink) and to resolve the
 * first service that is found. */
MIRACAST_SIGMA_EXPORT int discovermDNSPeer(int deviceType);

/* Waits up to 60 seconds until a peer's IPv4 address is in actualvalues, and ends the discovery. -1
 * when there is none. */
MIRACAST_SIGMA_EXPORT int waitforDiscovery(void);

/* The last resolved peer: its address, cut to fit `size` bytes with the end, and its port. */
MIRACAST_SIGMA_EXPORT int getmDNSPeerIPandPort(char* address, int size, int* port);

/* Asks the last resolved peer, a sink, to connect to `localPort` of this host. `localAddress` is
 * not sent. */
MIRACAST_SIGMA_EXPORT int triggerSinkConnection(const char* localAddress, int localPort);

/* Looks for primary sinks for 20 seconds. */
MIRACAST_SIGMA_EXPORT int discoverPrimarySink(void);

/* --- Shared test state ---------------------------------------------------------------------- */

/* Default RTSP session-management control port, for the agent; the library does not use it. */
MIRACAST_SIGMA_EXPORT extern int32_t session_management_control_port;

/* 1, or 2 for Wi-Fi Display R2. Set by sta_reset_default. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) wfd_version;

/* This device's role: 0 source, 1 primary sink. Set by start_wfd_connection. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) wfd_device_type;

/* Identifier of the current session, 0 when there is none. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) g_wfd_session_id;

/* The identifier as the session client reported it; written before g_wfd_session_id is set. */
MIRACAST_SIGMA_EXPORT extern char wfdSessionId[12];

/* The newest session client; earlier ones are never destroyed. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(MiracastSigmaClient) gWFDClient;

/* The UIBC worker: 1 once its start was tried; set to 1 to make it finish; its thread. */
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) uibc_setup_done;
MIRACAST_SIGMA_EXPORT extern MIRACAST_SIGMA_ATOMIC(int32_t) uibc_complete_flag;
MIRACAST_SIGMA_EXPORT extern pthread_t uibc_worker_handle;

/* The last playback thread, joinable; whoever wants its resources back joins it. */
MIRACAST_SIGMA_EXPORT extern pthread_t rtsp_playback_thread;

/* The DNS-SD instance name of this device's last registration, emptied by resetmDNSParams. Written
 * on another thread when the daemon reports the name, also when it changes it later; the answer of
 * sta_preset_testparameters is a copy. */
MIRACAST_SIGMA_EXPORT extern char instanceName[64];

/* The last resolved R2 peer: 192 bytes, declared in MDnsWfdServiceInfo.h. Written on another
 * thread for each IPv4 address of the peer, until resetmDNSParams; getmDNSPeerIPandPort gives a
 * copy. */
struct MDnsWfdServiceInfo;
MIRACAST_SIGMA_EXPORT extern struct MDnsWfdServiceInfo actualvalues;

/* The agent's own words; the library neither reads nor writes them. */
MIRACAST_SIGMA_EXPORT extern void* cmd;
MIRACAST_SIGMA_EXPORT extern void* conn;
MIRACAST_SIGMA_EXPORT extern void* dut;
MIRACAST_SIGMA_EXPORT extern int32_t exitcode;
MIRACAST_SIGMA_EXPORT extern char wfd_ifname[32];

#ifdef __cplusplus
}
#endif

#endif
