// The device's shell tools: a program that is installed as `input` and as `am`. It tells the
// process that stands for the device what it was asked, and ends when that has been noted. Without
// such a process it says on standard output what it would have done.
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
    sockaddr_un address{};
    if (name == nullptr || strlen(name) + 1 > sizeof address.sun_path) {
        puts(line.c_str());
        return 0;
    }
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path + 1, name, strlen(name));
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + strlen(name));
    const int device = socket(AF_UNIX, SOCK_STREAM, 0);
    if (device < 0 || connect(device, reinterpret_cast<sockaddr*>(&address), length) != 0) {
        perror(line.c_str());
        return 1;
    }
    for (size_t sent = 0; sent < line.size();) {
        const ssize_t now = send(device, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (now <= 0) {
            perror(line.c_str());
            return 1;
        }
        sent += static_cast<size_t>(now);
    }
    shutdown(device, SHUT_WR);
    char end = 0;
    return read(device, &end, 1) == 0 ? 0 : 1;  // closed: noted
}
