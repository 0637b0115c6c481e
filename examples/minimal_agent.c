/*
 * The smallest agent: loads the library, starts a session as a source and tears it down again.
 *
 *   cc -I miracastSigma/include minimal_agent.c -o minimal_agent
 *   ./minimal_agent build/lib/libmiracastSigma.so
 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include "miracast_sigma.h"

int main(int argc, char** argv) {
    void* library = dlopen(argc > 1 ? argv[1] : "libmiracastSigma.so", RTLD_NOW);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    /* The header's declarations give the types of what dlsym finds. */
    __typeof__(&sta_reset_default) reset = dlsym(library, "sta_reset_default");
    __typeof__(&start_wfd_connection) start = dlsym(library, "start_wfd_connection");
    __typeof__(&dev_send_frame) frame = dlsym(library, "dev_send_frame");
    if (reset == NULL || start == NULL || frame == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 2;
    }

    reset("interface,wlan0,prog,WFD");
    char* session = NULL;
    const int peerIsSink = 1;
    if (start("", "192.168.49.2", 7236, peerIsSink, &session) != 0) {
        fprintf(stderr, "no session\n");
        return 1;
    }
    printf("session %s\n", session);
    free(session);
    return frame("framename,RTSP,RtspMsgType,TEARDOWN") == 1 ? 0 : 1;
}
