#include "MdnsService.h"

#include <avahi-client/client.h>
#include <avahi-common/simple-watch.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <utility>

#include "Journal.h"
#include "LineRelay.h"
#include "android/log.h"

extern char** environ;

namespace hostplatform {

namespace {

// Runs the daemon, and ends it when standard input ends: on request, or because this process is
// gone, however it went. A daemon that was stopped by a signal is let go on, so that it can end.
// The script ends when the daemon has ended.
constexpr const char* kKeeper =
    "exec 3<&0\n"
    "\"$@\" </dev/null 3<&- 2>&1 & daemon=$!\n"
    "exec >/dev/null\n"
    "{ read -r _ <&3; kill -CONT $daemon; kill $daemon; } & watch=$!\n"
    "wait $daemon; status=$?\n"
    "kill $watch\n"
    "exit $status\n";

template <typename... Arguments>
void cannotStart(const char* pattern, Arguments... arguments) {
    __android_log_print(ANDROID_LOG_ERROR, "hostplatform", pattern, arguments...);
}

// Where it is, or "" when it is nowhere; a name with a slash is taken as it is.
std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos) return access(name.c_str(), X_OK) == 0 ? name : "";
    const char* const path = getenv("PATH");
    std::istringstream directories((path == nullptr ? "" : std::string(path) + ":") +
                                   "/usr/local/sbin:/usr/sbin:/sbin");
    for (std::string directory; std::getline(directories, directory, ':');) {
        const std::string file = directory + "/" + name;
        if (!directory.empty() && access(file.c_str(), X_OK) == 0) return file;
    }
    return "";
}

struct Pipe {
    UniqueFd readEnd;
    UniqueFd writeEnd;
};

Pipe makePipe() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) return {};
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

}  // namespace

MdnsService& MdnsService::instance() {
    static auto* const service = new MdnsService;
    return *service;
}

// A daemon answers when a client of it gets a state from it: what every DNS-SD request does first.
// Allowed to wait for a daemon, a client can be made whenever there is a bus.
MdnsService::Answer MdnsService::ask() const {
    const std::unique_ptr<AvahiSimplePoll, decltype(&avahi_simple_poll_free)> poll(
        avahi_simple_poll_new(), avahi_simple_poll_free);
    if (poll == nullptr) return Answer::NoDaemon;
    AvahiClient* const client = avahi_client_new(
        avahi_simple_poll_get(poll.get()), AVAHI_CLIENT_NO_FAIL,
        [](AvahiClient*, AvahiClientState, void*) {}, nullptr, nullptr);
    if (client == nullptr) return Answer::NoBus;
    const AvahiClientState state = avahi_client_get_state(client);
    avahi_client_free(client);
    const bool waiting = state == AVAHI_CLIENT_CONNECTING || state == AVAHI_CLIENT_FAILURE;
    return waiting ? Answer::NoDaemon : Answer::Running;
}

bool MdnsService::ownEnded() {
    if (mKeeper < 0) return true;
    if (TEMP_FAILURE_RETRY(waitpid(mKeeper, nullptr, WNOHANG)) == 0) return false;
    mKeeper = -1;
    mLifeline.reset();
    return true;
}

void MdnsService::start() {
    const std::lock_guard lock(mMutex);
    // Ours that does not answer is either on its way or, without its keeper having noticed, gone.
    for (int i = 0; i < 100 && !ownEnded() && ask() != Answer::Running; ++i) usleep(10'000);
    if (!ownEnded()) {
        Journal::instance().add("property", "mdnsd was started before");
        return;
    }
    const Answer answer = ask();
    if (answer == Answer::Running) {
        Journal::instance().add("property", "mdnsd answers already, started by somebody else");
        return;
    }
    const std::string program = findProgram(mCommand.front());
    if (answer == Answer::NoBus) {
        const char* const address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
        cannotStart("mdnsd cannot be started: no system bus answers%s%s",
                    address == nullptr ? "" : " at ", address == nullptr ? "" : address);
    } else if (program.empty()) {
        cannotStart("mdnsd cannot be started: there is no %s on this machine (Debian package %s)",
                    mCommand.front().c_str(), "avahi-daemon");
    } else {
        spawn(program);
    }
}

void MdnsService::spawn(const std::string& program) {
    Pipe lifeline = makePipe();
    Pipe output = makePipe();
    if (!lifeline.readEnd || !output.readEnd) {
        cannotStart("mdnsd cannot be started: %s", strerror(errno));
        return;
    }
    std::vector<const char*> arguments{"sh", "-c", kKeeper, "mdnsd", program.c_str()};
    for (size_t i = 1; i < mCommand.size(); ++i) arguments.push_back(mCommand[i].c_str());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, lifeline.readEnd.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.writeEnd.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    // A session of its own: an interrupt from the terminal is for this process, which may have
    // something to end before the daemon goes.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    const int error = posix_spawn(&mKeeper, "/bin/sh", &actions, &attributes,
                                  const_cast<char**>(arguments.data()), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        mKeeper = -1;
        cannotStart("mdnsd cannot be started: %s", strerror(error));
        return;
    }
    mLifeline = std::move(lifeline.writeEnd);
    relayLines(std::move(output.readEnd), [](const std::string& line) {
        __android_log_print(ANDROID_LOG_INFO, "mdnsd", "%s", line.c_str());
    });
    Journal::instance().add("property", "mdnsd started: " + program);
}

void MdnsService::stop() {
    const std::lock_guard lock(mMutex);
    if (ownEnded()) {
        if (ask() == Answer::Running) {
            Journal::instance().add("property", "mdnsd left running, started by somebody else");
        }
        return;
    }
    mLifeline.reset();
    TEMP_FAILURE_RETRY(waitpid(mKeeper, nullptr, 0));
    mKeeper = -1;
    Journal::instance().add("property", "mdnsd stopped");
}

void MdnsService::setCommand(std::vector<std::string> command) {
    const std::lock_guard lock(mMutex);
    mCommand = std::move(command);
}

}  // namespace hostplatform
