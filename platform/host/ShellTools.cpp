#include "ShellTools.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "Journal.h"
#include "SmallThread.h"
#include "TextFormat.h"

namespace hostplatform {

namespace {

constexpr const char* kSocketVariable = "HOSTPLATFORM_TOOL_SOCKET";

// One tool: it sends its command line and ends it by closing its sending side; the journal holds
// the entry before the tool is answered, and so before the shell command that ran it returns.
void serveTool(int tool) {
    std::string text;
    char buffer[512];
    ssize_t got = 0;
    while ((got = TEMP_FAILURE_RETRY(read(tool, buffer, sizeof buffer))) > 0) {
        text.append(buffer, static_cast<size_t>(got));
    }
    Journal::instance().add("tool", text);
    close(tool);
}

}  // namespace

bool installShellTools(const std::string& directory) {
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (server < 0) return false;
    // An abstract name: it leaves nothing in the file system and goes with the process.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = format("hostplatform-tools-%d", getpid());
    memcpy(address.sun_path + 1, name.data(), name.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (bind(server, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        listen(server, 16) != 0) {
        const int error = errno;
        close(server);
        errno = error;
        return false;
    }
    const char* const path = getenv("PATH");
    setenv("PATH", (directory + (path == nullptr ? "" : ":" + std::string(path))).c_str(), 1);
    setenv(kSocketVariable, name.c_str(), 1);

    const int error = startSmallThread([server] {
        while (true) {
            const int tool = accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
            if (tool >= 0) {
                serveTool(tool);
            } else if (errno != EINTR) {
                usleep(10'000);  // out of descriptors for the moment
            }
        }
    });
    errno = error;
    if (error != 0) close(server);
    return error == 0;
}

std::string shellToolsDirectory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&shellToolsDirectory), &info) == 0) return ".";
    const std::string file = info.dli_fname;
    return file.substr(0, file.rfind('/')) + "/../host/bin";
}

}  // namespace hostplatform
