/* An agent that links with the installed library. */
#include <WfdDiscovery.h>
#include <miracast_sigma.h>
#include <stdio.h>

int main(void) {
    const int reset = sta_reset_default("program,DisplayR2");
    printf("reset %d version %d peer %d bytes\n", reset, (int)wfd_version,
           (int)sizeof(MDnsWfdServiceInfo));
    return 0;
}
