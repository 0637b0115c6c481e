// The test state shared by the commands, the session code and the agent.
#include <cstddef>

#include "MDnsWfdServiceInfo.h"
#include "discovery.h"
#include "miracast_sigma.h"

int32_t session_management_control_port = kRtspControlPort;
std::atomic<int32_t> wfd_version{1};
std::atomic<int32_t> wfd_device_type{MIRACAST_SOURCE};
std::atomic<int32_t> g_wfd_session_id{0};
char wfdSessionId[12];
std::atomic<WiFiDisplayClient*> gWFDClient{nullptr};
std::atomic<int32_t> uibc_setup_done{0};
std::atomic<int32_t> uibc_complete_flag{0};
pthread_t uibc_worker_handle;
pthread_t rtsp_playback_thread;
char instanceName[64];
MDnsWfdServiceInfo actualvalues;
void* cmd;
void* conn;
void* dut;
int32_t exitcode;
char wfd_ifname[32];

// An agent may declare plain variables instead of the atomic ones, and a record type of its own.
static_assert(sizeof(wfd_device_type) == 4 && alignof(std::atomic<int32_t>) == 4);
static_assert(sizeof(gWFDClient) == sizeof(void*));
static_assert(std::atomic<int32_t>::is_always_lock_free);
static_assert(std::atomic<WiFiDisplayClient*>::is_always_lock_free);
static_assert(sizeof(MDnsWfdServiceInfo) == 192);
static_assert(offsetof(MDnsWfdServiceInfo, serviceName) == 4);
static_assert(offsetof(MDnsWfdServiceInfo, regType) == 68);
static_assert(offsetof(MDnsWfdServiceInfo, ipAddress) == 92);
static_assert(offsetof(MDnsWfdServiceInfo, port) == 156);
static_assert(offsetof(MDnsWfdServiceInfo, domain) == 160);
