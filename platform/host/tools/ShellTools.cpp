#include "host/tools/ShellTools.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/UniqueFd.h"
#include "host/read_lines.h"
#include "host/small_thread.h"
#include "host/text_format.h"

namespace hostplatform {

namespace {

// Returns the directory of the tools, which the build puts beside this library.
std::string toolsDirectory() {
    static const char inThisLibrary = 0;
    Dl_info info{};
    if (dladdr(&inThisLibrary, &info) == 0) return ".";
    const std::string file = info.dli_fname;
    return file.substr(0, file.rfind('/')) + "/../host/bin";
}

}  // namespace

bool ShellTools::install() {
    UniqueFd server(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    // An abstract name makes no file and disappears with the process.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = format("hostplatform-tools-%d", getpid());
    memcpy(address.sun_path + 1, name.data(), name.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (bind(server.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        listen(server.get(), 16) != 0) {
        return false;
    }
    const char* const path = getenv("PATH");
    setenv("PATH", (toolsDirectory() + (path == nullptr ? "" : ":" + std::string(path))).c_str(),
           1);
    setenv("HOSTPLATFORM_TOOL_SOCKET", name.c_str(), 1);
    errno = startSmallThread([this, socket = server.get()] { serve(socket); });
    if (errno != 0) return false;
    server.release();
    return true;
}

// A tool sends its command line and closes its sending side. The service then adds the journal
// entry and closes the connection, which ends the tool. So the entry is there before the shell
// command returns.
void ShellTools::serve(int server) {
    while (true) {
        const UniqueFd tool(accept4(server, nullptr, nullptr, SOCK_CLOEXEC));
        if (tool) {
            readLines(tool.get(), [this](const std::string& line) { mJournal.add("tool", line); });
        } else if (errno != EINTR) {
            usleep(10'000);  // out of descriptors for the moment
        }
    }
}

}  // namespace hostplatform
