#include "TestDevice.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>

namespace {

// As a journal's line has it, after the time and the thread.
std::string column(const std::string& component) {
    std::ostringstream text;
    text << ' ' << std::left << std::setw(10) << component << ' ';
    return text.str();
}

template <typename Visit>
void forEachEntry(const std::string& journal, const std::string& component, Visit visit) {
    std::istringstream lines(journal);
    for (std::string line; std::getline(lines, line);) {
        const auto begin = line.find(column(component));
        if (begin != std::string::npos) visit(line.substr(begin));
    }
}

}  // namespace

TestDevice::TestDevice(const RealDaemon& daemon, double timeScale, const std::string& peer)
    : mHost(daemon.host()),
      mAgent({"--listen", '[' + std::string(RealDaemon::ipv6(mHost)) + "]:0", "--peer", peer,
              "--time-scale", std::to_string(timeScale), "--journal", mDirectory.path("journal")},
             "", daemon.launcher()),
      mController(mAgent.port(), asio::ip::make_address(RealDaemon::ipv6(mHost))) {}

TestDevice::~TestDevice() { end(); }

std::string TestDevice::command(const std::string& line) {
    send(line);
    return answer();
}

void TestDevice::send(const std::string& line) { mController.send(line + "\r\n"); }

std::string TestDevice::answer() {
    const std::string before = "status,";
    std::string line = mController.readLine();
    if (line == "status,RUNNING") line = mController.readLine();
    return line.substr(0, before.size()) == before ? line.substr(before.size()) : line;
}

std::string TestDevice::preset(const std::string& deviceType) {
    const std::string before = "COMPLETE,InstanceName,";
    EXPECT_EQ(command("sta_reset_default,interface,wlan0,prog,DisplayR2"), "COMPLETE");
    const std::string line = command(
        "sta_preset_testparameters,mdns_disc,enable,mdns_role,responder,wfddevtype," + deviceType);
    EXPECT_EQ(line.substr(0, before.size()), before) << line;
    return line.substr(std::min(line.size(), before.size()));
}

std::string TestDevice::journal() const {
    std::ifstream file(mDirectory.path("journal"), std::ios::binary);
    file.seekg(static_cast<std::streamoff>(mSeen));
    std::string text{std::istreambuf_iterator<char>(file), {}};
    text.resize(text.rfind('\n') + 1);  // the last line may be half there
    return text;
}

void TestDevice::mark() { mSeen += journal().size(); }

std::size_t TestDevice::count(const std::string& component, const std::string& part) const {
    std::size_t found = 0;
    forEachEntry(journal(), component, [&](const std::string& entry) {
        if (entry.find(part) != std::string::npos) ++found;
    });
    return found;
}

bool TestDevice::shows(const std::string& component, const std::string& part) const {
    if (test::waitUntil([&] { return count(component, part) > 0; })) return true;
    std::string seen;
    for (const char* const other : {"capi", "log", "session", "report", "link", "tool"}) {
        forEachEntry(journal(), other, [&](const std::string& entry) {
            if (entry.find(" D/") == std::string::npos) seen += entry + '\n';
        });
    }
    ADD_FAILURE() << (mHost == Host::Here ? "here" : "peer") << ": no" << column(component) << part
                  << "; but\n"
                  << seen;
    return false;
}

std::string TestDevice::after(const std::string& component, const std::string& part) const {
    std::string rest;
    if (!shows(component, part)) return rest;
    forEachEntry(journal(), component, [&](const std::string& entry) {
        const auto at = entry.find(part);
        if (at != std::string::npos) rest = entry.substr(at + part.size());
    });
    return rest;
}

void TestDevice::end() {
    if (mEnded) return;
    mEnded = true;
    mAgent.signal(SIGTERM);
    EXPECT_EQ(mAgent.wait(), 0) << mAgent.errors();
    expectCleanErrors();
}

void TestDevice::kill() {
    mEnded = true;
    mAgent.signal(SIGKILL);
    mAgent.wait();
    expectCleanErrors();
}

void TestDevice::expectCleanErrors() const {
    const std::string errors = mAgent.errors();
    EXPECT_EQ(errors.find("Sanitizer:"), std::string::npos) << errors;
    EXPECT_EQ(errors.find("runtime error:"), std::string::npos) << errors;
}
