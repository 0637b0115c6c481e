#include "RealDaemon.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>

#include "Journal.h"
#include "LineRelay.h"
#include "RealDaemonNetwork.h"

using hostplatform::Journal;

namespace {

const char* nameOf(Host host) { return host == Host::Here ? "here" : "peer"; }

std::string configurationFile(Host host) {
    return std::string(kTestNetworkDirectory) + "/" + nameOf(host) + "-daemon.conf";
}

// Both hosts share /run, so each daemon gets one of its own, for its process number's file.
constexpr const char* kRun = "mount -t tmpfs tmpfs /run/avahi-daemon && exec \"$@\"";

}  // namespace

const char* RealDaemon::unavailable() { return noTestNetwork(); }

const char* RealDaemon::ipv4(Host host) {
    return host == Host::Here ? "192.168.49.1" : "192.168.49.2";
}
const char* RealDaemon::ipv6(Host host) {
    return host == Host::Here ? "fd49:4b5c:6d7e::1" : "fd49:4b5c:6d7e::2";
}

RealDaemon::RealDaemon(Host host, const std::string& hostName) : mHost(host) {
    if (unavailable() != nullptr) return;
    std::ofstream(configurationFile(host))
        << "[server]\nhost-name=" << hostName
        << "\nallow-interfaces=wlan0\nclients-max=10000\nratelimit-interval-usec=0\n"
           "[publish]\npublish-hinfo=no\npublish-workstation=no\n[rlimits]\n";
}

RealDaemon::~RealDaemon() { kill(); }

std::string RealDaemon::busAddress() const {
    return std::string("unix:path=") + kTestNetworkDirectory + "/" + nameOf(mHost) + ".bus";
}

std::vector<std::string> RealDaemon::launcher() const {
    std::vector<std::string> words;
    if (mHost == Host::Peer) words = {"ip", "netns", "exec", "peer"};
    words.insert(words.end(), {"env", "DBUS_SYSTEM_BUS_ADDRESS=" + busAddress()});
    return words;
}

std::vector<std::string> RealDaemon::command() const {
    std::vector<std::string> words = launcher();
    const std::vector<std::string> daemon = {"unshare",      "--mount",
                                             "sh",           "-c",
                                             kRun,           "sh",
                                             "avahi-daemon", "--no-drop-root",
                                             "--no-chroot",  "--file=" + configurationFile(mHost)};
    words.insert(words.end(), daemon.begin(), daemon.end());
    return words;
}

bool RealDaemon::start() {
    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) return false;
    const std::vector<std::string> words = command();
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDERR_FILENO);
    const uint64_t mark = Journal::instance().mark();
    const int error =
        posix_spawnp(&mProcess, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(output[1]);
    if (error != 0) {
        mProcess = -1;
        close(output[0]);
        ADD_FAILURE() << arguments.front() << ": " << strerror(error);
        return false;
    }
    hostplatform::relayLines(hostplatform::UniqueFd(output[0]),
                             [host = std::string(nameOf(mHost))](const auto& line) {
                                 Journal::instance().add("daemon", host + ": " + line);
                             });
    const std::string ready = std::string(nameOf(mHost)) + ": Server startup complete.";
    if (Journal::instance().waitFor("daemon", ready, mark)) return true;
    for (const std::string& line : Journal::instance().texts("daemon", mark)) {
        ADD_FAILURE() << line;
    }
    ADD_FAILURE() << "no daemon";
    return false;
}

void RealDaemon::end(int signal) {
    if (mProcess < 0) return;
    ::kill(mProcess, signal);
    TEMP_FAILURE_RETRY(waitpid(mProcess, nullptr, 0));
    mProcess = -1;
}

void RealDaemon::kill() { end(SIGKILL); }
void RealDaemon::stop() { end(SIGTERM); }

void RealDaemonTest::SetUp() {
    if (RealDaemon::unavailable() != nullptr) GTEST_SKIP() << RealDaemon::unavailable();
    mDaemon = std::make_unique<RealDaemon>(Host::Here, "device");
    ASSERT_TRUE(mDaemon->start());
}

void RealDaemonTest::TearDown() { mDaemon.reset(); }
