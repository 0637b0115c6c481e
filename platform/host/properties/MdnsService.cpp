#include "host/properties/MdnsService.h"

#include <avahi-client/client.h>
#include <avahi-common/simple-watch.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "android/log.h"
#include "host/read_lines.h"
#include "host/small_thread.h"

namespace hostplatform {

// A daemon answers if a client gets a state from it; every DNS-SD request begins with that. With
// NO_FAIL a client can be made without a daemon, if there is a bus.
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

void MdnsService::start() {
    Lock lock(mMutex);
    // If our own daemon does not answer, it is still starting, or it has died and its thread has
    // not noticed yet: wait.
    for (int i = 0; i < 100 && mDaemon != 0 && ask() != Answer::Running; ++i) {
        mChanged.wait_for(lock, std::chrono::milliseconds(10));
    }
    const std::string& program = mCommand.front();
    const Answer answer = ask();
    if (mDaemon != 0) {
        mCore.journal.add("property", "mdnsd was started before");
    } else if (answer == Answer::Running) {
        mCore.journal.add("property", "mdnsd runs already, started by another process");
    } else if (answer == Answer::NoBus) {
        const char* const address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
        mCore.log.complain("mdnsd cannot be started: no system bus answers" +
                           (address == nullptr ? "" : std::string(" at ") + address));
    } else if (access(program.c_str(), X_OK) != 0) {
        mCore.log.complain("mdnsd cannot be started: there is no " +
                           program.substr(program.rfind('/') + 1) +
                           " on this machine (Debian package avahi-daemon)");
    } else if (startSmallThread([this] { runDaemon(); }) == 0) {
        mDaemon = -1;
        mChanged.wait(lock, [this]() REQUIRES(mMutex) { return mDaemon >= 0; });
    }
}

// Runs the daemon on this thread, which lives as long as the daemon. The kernel ends the daemon
// when the thread that forked it ends, so at the latest with this process.
void MdnsService::runDaemon() {
    Lock lock(mMutex);
    std::vector<char*> arguments;
    for (std::string& word : mCommand) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int output[2] = {-1, -1};
    const pid_t daemon = pipe2(output, O_CLOEXEC) == 0 ? fork() : -1;
    if (daemon == 0) {
        // Make system calls only: other threads of this process may hold any lock. In a session of
        // its own the daemon does not get the terminal's interrupts: this process may need it
        // longer.
        setsid();
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        dup2(output[1], STDERR_FILENO);
        close_range(STDERR_FILENO + 1, ~0U, 0);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    if (daemon > 0) {
        mCore.journal.add("property", "mdnsd started: " + mCommand.front());
    } else {
        mCore.log.complain(std::string("mdnsd cannot be started: ") + strerror(errno));
    }
    mDaemon = std::max(daemon, 0);
    mChanged.notify_all();
    lock.unlock();
    close(output[1]);
    readLines(output[0], [](const std::string& line) {
        __android_log_print(ANDROID_LOG_INFO, "mdnsd", "%s", line.c_str());
    });
    close(output[0]);
    if (daemon > 0) TEMP_FAILURE_RETRY(waitpid(daemon, nullptr, 0));
    lock.lock();
    mDaemon = 0;
    mChanged.notify_all();
}

void MdnsService::stop() {
    Lock lock(mMutex);
    if (mDaemon > 0) {
        kill(mDaemon, SIGTERM);
        kill(mDaemon, SIGCONT);  // a stopped process must continue to end
        mChanged.wait(lock, [this]() REQUIRES(mMutex) { return mDaemon == 0; });
        mCore.journal.add("property", "mdnsd stopped");
    } else if (ask() == Answer::Running) {
        mCore.journal.add("property", "mdnsd left running, started by another process");
    }
}

}  // namespace hostplatform
