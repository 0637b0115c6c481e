// A real mDNS daemon for tests, apart from the machine's own.
//
// A test program that links with real_daemon runs itself again in network, mount and process
// namespaces of its own before any test runs. In there are an interface wlan0, a private system bus
// (DBUS_SYSTEM_BUS_ADDRESS is set), and an empty /run; the other end of wlan0 is the wlan0 of a
// second host, a network namespace named "peer". Nothing of it outlives the program, however it
// ends. Where such namespaces are not permitted the program runs as it is, and the tests of
// RealDaemonTest are skipped.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

enum class Host { Here, Peer };

// The Avahi daemon of one host. Not for use by several threads at once. What the daemon writes goes
// to the journal's component "daemon".
class RealDaemon {
 public:
    // Null when the namespaces are there; else a text saying why not.
    static const char* unavailable();

    // `hostName`: the single-label name under which the daemon starts.
    RealDaemon(Host host, const std::string& hostName);
    ~RealDaemon();
    RealDaemon(const RealDaemon&) = delete;
    RealDaemon& operator=(const RealDaemon&) = delete;

    // Starts the daemon and waits until it serves, its host name established on the network. False,
    // with a test failure, when that did not happen.
    bool start();
    // SIGKILL, and waits for its end.
    void kill();
    // SIGTERM, with which it takes its records back from the network, and waits for its end.
    void stop();

    Host host() const { return mHost; }

    // A command that runs this daemon in the foreground.
    std::vector<std::string> command() const;
    // The words before a command that make it run on this daemon's host and bus, as the process
    // that is started.
    std::vector<std::string> launcher() const;

    // Addresses of wlan0. That for IPv6 is as long as most are: an R2 device tells the two kinds
    // apart by their length.
    static const char* ipv4(Host host);
    static const char* ipv6(Host host);

 private:
    std::string busAddress() const;
    void end(int signal);

    const Host mHost;
    pid_t mProcess = -1;
};

// Each test starts with a daemon named "device" on this host.
class RealDaemonTest : public testing::Test {
 protected:
    void SetUp() override;
    void TearDown() override;

    RealDaemon& daemon() { return *mDaemon; }

 private:
    std::unique_ptr<RealDaemon> mDaemon;
};
