// The program behind the device's shell tools `input` and `am`. It sends its command line to the
// process of the simulated device and waits until it has been journalled. Without that process it
// prints the command line.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
    std::string line = argv[0];
    line.erase(0, line.rfind('/') + 1);  // npos + 1 is 0
    for (int i = 1; i < argc; ++i) line += std::string(" ") + argv[i];

    const char* const name = getenv("HOSTPLATFORM_TOOL_SOCKET");
    if (name == nullptr) return puts(line.c_str()) < 0;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "%s", name);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + strlen(name));
    const int device = socket(AF_UNIX, SOCK_STREAM, 0);
    char end = 0;
    const bool noted = connect(device, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                       send(device, line.data(), line.size(), MSG_NOSIGNAL) >= 0 &&
                       shutdown(device, SHUT_WR) == 0 && read(device, &end, 1) == 0;
    if (!noted) perror(line.c_str());
    return noted ? 0 : 1;
}
