#include "RealDaemonNetwork.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "RealDaemon.h"

namespace {

constexpr const char* kInsideVariable = "REAL_DAEMON_NETWORK";
std::string whyNot = "this program was started without its own main function";

[[noreturn]] void giveUp(const std::string& what) {
    fprintf(stderr, "The network for tests of the real daemon cannot be made: %s\n", what.c_str());
    exit(1);
}

void run(const std::string& command) {
    if (system(command.c_str()) != 0) giveUp(command);
}

// A bus on which everybody may do everything; every DNS-SD request is one connection.
void startBus(const std::string& name) {
    const std::string base = std::string(kTestNetworkDirectory) + "/" + name;
    std::ofstream(base + ".conf")
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
           "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n<busconfig>"
        << "<type>system</type><listen>unix:path=" << base << ".bus</listen><pidfile>" << base
        << ".pid</pidfile><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
           "<allow own=\"*\"/><allow send_destination=\"*\"/><allow receive_sender=\"*\"/></policy>"
           "<limit name=\"max_connections_per_user\">10000</limit>"
           "<limit name=\"max_completed_connections\">10000</limit></busconfig>\n";
    // Returns when the bus takes connections.
    run("exec 2>" + base + ".log; dbus-daemon --config-file=" + base + ".conf --fork");
}

// The daemon gives its directory to a user "avahi". In namespaces made by an ordinary user there is
// no other user than root, so in here that is what avahi is.
void makeUsers() {
    const std::string file = std::string(kTestNetworkDirectory) + "/users";
    std::ofstream(file) << "root:x:0:0::/:/bin/sh\navahi:x:0:0::/:/bin/sh\n";
    for (const char* const replaced : {"/etc/passwd", "/etc/group"}) {
        if (mount(file.c_str(), replaced, nullptr, MS_BIND, nullptr) != 0) giveUp(replaced);
    }
}

// Without duplicate address detection, so that no address takes a second to come.
std::string interfaceSetup(Host host) {
    return "echo 0 >/proc/sys/net/ipv6/conf/wlan0/accept_dad;"
           "ip address add " +
           std::string(RealDaemon::ipv4(host)) + "/24 dev wlan0; ip address add " +
           RealDaemon::ipv6(host) + "/64 dev wlan0; ip link set lo up; ip link set wlan0 up";
}

void makeNetwork() {
    const std::string directory = kTestNetworkDirectory;
    if (mount("tmpfs", "/run", "tmpfs", 0, "mode=755") != 0 ||
        mkdir(directory.c_str(), 0755) != 0 || mkdir("/run/avahi-daemon", 0755) != 0) {
        giveUp("a private /run");
    }
    makeUsers();
    run("ip netns add peer && ip link add wlan0 type veth peer name wlan0 netns peer");
    run("sh -ec '" + interfaceSetup(Host::Here) + "'");
    run("ip netns exec peer sh -ec '" + interfaceSetup(Host::Peer) + "'");
    startBus("here");
    startBus("peer");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + directory + "/here.bus").c_str(), 1);
}

}  // namespace

const char* noTestNetwork() { return whyNot.empty() ? nullptr : whyNot.c_str(); }

void enterTestNetwork(int argc, char** argv) {
    if (getenv(kInsideVariable) != nullptr) {
        makeNetwork();
        whyNot.clear();
        return;
    }
    for (int i = 1; i < argc; ++i) {
        if (strncmp(argv[i], "--gtest_list_tests", 18) == 0) return;
    }
    // With a process namespace, so that all daemons end when its first process does: a shell, since
    // signals and the end of children mean something else to a first process.
    std::string flags = "--net --mount --pid --fork --mount-proc --kill-child";
    if (geteuid() != 0) flags += " --user --map-root-user";
    if (system(("unshare " + flags + " true 2>/dev/null").c_str()) != 0) {
        whyNot = "network, mount and process namespaces are not permitted here";
        return;
    }
    setenv(kInsideVariable, "1", 1);
    const std::string script = "exec unshare " + flags + " sh -c '\"$@\"; exit $?' sh \"$@\"";
    std::vector<char*> arguments{const_cast<char*>("sh"), const_cast<char*>("-c"),
                                 const_cast<char*>(script.c_str()), const_cast<char*>("sh")};
    arguments.insert(arguments.end(), argv, argv + argc);
    arguments.push_back(nullptr);
    execvp("sh", arguments.data());
    giveUp("no shell");
}

int main(int argc, char** argv) {
    enterTestNetwork(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
