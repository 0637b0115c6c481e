/* One registered, discovered or resolved Wi-Fi Display R2 service. C and C++. */
#ifndef MDNS_WFD_SERVICE_INFO_H
#define MDNS_WFD_SERVICE_INFO_H

#include <stdint.h>

/* A plain record; every text is NUL-terminated. */
typedef struct MDnsWfdServiceInfo {
    int32_t reserved;     /* always 0 */
    char serviceName[64]; /* service instance name */
    char regType[24];     /* service type, "_display._tcp" */
    char ipAddress[64];   /* numeric address: dotted quad, or IPv6 text */
    int32_t port;         /* host byte order */
    char domain[32];      /* DNS-SD domain */
} MDnsWfdServiceInfo;

#endif
