#include "local_address.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "c_text.h"
#include "sigma_log.h"

namespace {

constexpr int kAddressTextSize = 20;

class Socket {
 public:
    Socket(int family, int type) : mDescriptor(socket(family, type | SOCK_CLOEXEC, 0)) {}
    ~Socket() {
        if (mDescriptor >= 0) close(mDescriptor);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int get() const { return mDescriptor; }

 private:
    const int mDescriptor;
};

}  // namespace

int getSigmaLocalIpAddress(char* pLocalIpAddr, int size, const char* interfaceName) {
    ifreq request{};
    copyText(request.ifr_name, interfaceName);
    if (pLocalIpAddr == nullptr) {
        SIGMA_LOG("pLocalIpAddr is NULL\n");
        return -1;
    }
    if (size < kAddressTextSize) {
        SIGMA_LOG("Not enough size for IPv4 ip address. Required min: %d, given: %d \n",
                  kAddressTextSize, size);
        return -1;
    }
    const Socket datagram(AF_INET, SOCK_DGRAM);
    if (datagram.get() < 0) {
        SIGMA_LOG("getSigmaLocalIpAddress :Error in creating socket \n");
        return -1;
    }
    if (ioctl(datagram.get(), SIOCGIFADDR, &request) != 0) {
        SIGMA_LOG("getSigmaLocalIpAddress :: %s \n", strerror(errno));
        return -1;
    }
    sockaddr_in address{};
    memcpy(&address, &request.ifr_addr, sizeof address);
    SIGMA_LOG("getSigmaLocalIpAddress :addr[%x] \n", address.sin_addr.s_addr);
    unsigned char bytes[4];  // in network byte order
    memcpy(bytes, &address.sin_addr.s_addr, sizeof bytes);
    snprintf(pLocalIpAddr, kAddressTextSize, "%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
    SIGMA_LOG("getSigmaLocalIpAddress :local IP Address %s \n", pLocalIpAddr);
    return 0;
}
