// A whole simulated device on one of the two hosts of RealDaemon.h: an agent in a process of its
// own, with the library, and its controller.
//
// Its session client is linked with that of the device on the other host. Every check of it reads
// its journal from the last mark on. Ended by the destructor, if not before; an end that is not
// clean (a sanitizer's report makes it so) is a test failure. Not for use by several threads at
// once.
#pragma once

#include <cstddef>
#include <string>

#include "AgentProcess.h"
#include "Controller.h"
#include "RealDaemon.h"

class TestDevice {
 public:
    // Device time passes `timeScale` times as fast as real time, which the network keeps.
    TestDevice(const RealDaemon& daemon, double timeScale, const std::string& peer = "linked");
    ~TestDevice();
    TestDevice(const TestDevice&) = delete;
    TestDevice& operator=(const TestDevice&) = delete;

    // One command and the final line of its answer, without "status,".
    std::string command(const std::string& line);
    // The two halves of it, for a command that waits for the other device.
    void send(const std::string& line);
    std::string answer();

    // The test's parameters for a responder; returns the name under which the device is registered.
    std::string preset(const std::string& deviceType);

    // Forgets what was journalled so far.
    void mark();
    // Waits until an entry of `component` contains `part`; a test failure when none comes.
    bool shows(const std::string& component, const std::string& part) const;
    // Number of such entries so far.
    std::size_t count(const std::string& component, const std::string& part) const;
    // What follows `part` in the last of such entries; waits for one.
    std::string after(const std::string& component, const std::string& part) const;

    // As a person ends an agent, and as a crash does.
    void end();
    void kill();

 private:
    std::string journal() const;
    void expectCleanErrors() const;

    const Host mHost;
    const test::TemporaryDirectory mDirectory;
    test::AgentProcess mAgent;
    test::Controller mController;
    std::size_t mSeen = 0;
    bool mEnded = false;
};
