#include "DiscoveryTest.h"

#include <poll.h>
#include <unistd.h>

#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/write.hpp>
#include <thread>
#include <utility>

#include "Clock.h"
#include "TextFormat.h"
#include "cutils/properties.h"
#include "osal/osal.h"

using asio::ip::tcp;
using hostplatform::format;
using hostplatform::Journal;
using hostplatform::JournalEntry;

namespace {

constexpr std::chrono::duration<int> kPatience(20);  // seconds

struct {
    uint32_t milliseconds = 0;
    int left = 0;
    std::function<void()> action;
} thread_local sleepAction;

thread_local uint64_t sleptInAll = 0;

// The context that sockets are made in; nothing runs in it.
asio::io_context& sockets() {
    static asio::io_context context;
    return context;
}

// Waits until all results have been reported, those of DNS-SD and of the session client.
void settle() {
    EXPECT_TRUE(waitUntil([] { return FakeDnsSd::instance().idle(); }));
    EXPECT_TRUE(hostplatform::waitReported());
}

}  // namespace

void osal_sleep_ms(uint32_t milliseconds) {
    Journal::instance().add("sleep", std::to_string(milliseconds));
    if (milliseconds == sleepAction.milliseconds && --sleepAction.left == 0) sleepAction.action();
    if (gettid() != getpid()) {
        std::this_thread::sleep_for(
            hostplatform::realDuration(std::chrono::milliseconds(milliseconds)));
    } else if (milliseconds >= 1000) {
        settle();
    }
    sleptInAll += milliseconds;
}

uint64_t osal_clock_ms() { return sleptInAll; }

bool waitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));  // between two looks
    }
    return true;
}

void noteResult(char name, int result, const MDnsWfdServiceInfo* info) {
    Journal::instance().add(
        "callback", info == nullptr
                        ? format("%c(%d)", name, result)
                        : format("%c(%d, %s, %s, %s, %s, %d)", name, result, info->serviceName,
                                 info->regType, info->domain, info->ipAddress, info->port));
}

void noteTrigger(char name, const char* address, int port) {
    Journal::instance().addFormatted("callback", "%c(%s, %d)", name, address, port);
}

Connection::Connection(int port, const char* from)
    : mSocket(sockets(), tcp::endpoint(asio::ip::make_address(from), 0)) {
    mSocket.connect({asio::ip::address_v4::loopback(), static_cast<uint16_t>(port)});
    mSocket.set_option(tcp::no_delay(true));
}

void Connection::send(const std::string& bytes) { asio::write(mSocket, asio::buffer(bytes)); }

std::string Connection::received() {
    std::string text;
    pollfd ready{mSocket.native_handle(), POLLIN, 0};
    while (poll(&ready, 1, 1000 * kPatience.count()) > 0) {
        unsigned char byte = 0;
        std::error_code end;
        mSocket.read_some(asio::buffer(&byte, 1), end);
        if (end) return text;
        text += format("%02x", byte);
    }
    return text + "(open)";
}

void sendCommand(int port, const std::string& bytes) {
    Connection source(port);
    source.send(bytes);
    EXPECT_EQ(source.received(), "");
}

Sink::Sink(const char* address) : mAcceptor(sockets()) {
    mAcceptor.open(tcp::v4());
    mAcceptor.bind({asio::ip::make_address(address), 0});
}

std::string Sink::received() {
    pollfd ready{mAcceptor.native_handle(), POLLIN, 0};
    if (poll(&ready, 1, 1000 * kPatience.count()) <= 0) return "(nobody)";
    return Connection(mAcceptor.accept()).received();
}

bool Sink::reached() {
    pollfd ready{mAcceptor.native_handle(), POLLIN, 0};
    return poll(&ready, 1, 0) > 0;
}

DiscoveryTest::DiscoveryTest() : mObjectMark(journal().mark()) {
    property_set("ctl.stop", "mdnsd");  // whatever the test before left
    library().onStart([this](DNSServiceRef ref, const std::string& name) { onStart(ref, name); });
    mark();
}

DiscoveryTest::~DiscoveryTest() {
    onSleep(0, 0, nullptr);
    clear();
    library().onStart(nullptr);
    EXPECT_EQ(library().takeViolations(), Lines{});
    EXPECT_EQ(library().liveCount(), 0U) << "references leaked";
    // The next test is to see nothing of this one's threads.
    EXPECT_TRUE(journal().waitQuiet(std::chrono::milliseconds(50), kPatience));
}

DiscoveryTest::Result DiscoveryTest::service(const std::string& name, bool found) {
    Result result;
    result.flags = found ? kDNSServiceFlagsAdd : 0;
    result.name = name;
    result.type = "_display._tcp.";
    result.domain = "local.";
    return result;
}

DiscoveryTest::Result DiscoveryTest::resolved(const std::string& host, int port) {
    Result result;
    result.target = host;
    result.port = static_cast<uint16_t>(port);
    return result;
}

DiscoveryTest::Result DiscoveryTest::address(const std::string& text) {
    Result result;
    result.address = text;
    return result;
}

DiscoveryTest::Result DiscoveryTest::failure() {
    Result result;
    result.error = kDNSServiceErr_Unknown;
    return result;
}

void DiscoveryTest::onStart(DNSServiceRef ref, const std::string& name) {
    const std::lock_guard lock(mMutex);
    for (const Result& result : mAnswers[name]) library().answer(ref, result);
    mNewest[name] = ref;
    mStarted.notify_all();
}

void DiscoveryTest::answer(const std::string& name, const std::vector<Result>& results) {
    const std::lock_guard lock(mMutex);
    mAnswers[name] = results;
}

void DiscoveryTest::report(const std::string& name, const Result& result) {
    std::unique_lock lock(mMutex);
    ASSERT_TRUE(mStarted.wait_for(lock, kPatience, [&] { return mNewest.count(name) != 0; }))
        << "no request for " << name;
    EXPECT_TRUE(library().answer(mNewest[name], result)) << "the request has ended";
    lock.unlock();
    settle();
}

void DiscoveryTest::onSleep(uint32_t milliseconds, int nth, std::function<void()> action) {
    sleepAction.milliseconds = milliseconds;
    sleepAction.left = nth;
    sleepAction.action = std::move(action);
}

size_t DiscoveryTest::slept(uint32_t milliseconds) const {
    size_t count = 0;
    for (const JournalEntry& entry : journal().entries(marked())) {
        if (entry.component == "sleep" && entry.thread == gettid() &&
            entry.text == std::to_string(milliseconds)) {
            ++count;
        }
    }
    return count;
}

void DiscoveryTest::clear() {
    mDnsClearInstances();
    mObjectMark = journal().mark();
}

bool DiscoveryTest::waitForgotten() {
    const auto begun = journal().waitFor("log", "MDnsSdChannel starting to monitor", mObjectMark);
    return begun && waitRescanned(mObjectMark, begun->thread) >= 0;
}

DiscoveryTest::Lines DiscoveryTest::commands() const {
    const std::string prefix = "V: runCommand ";
    Lines lines;
    for (const std::string& line : tagged("WFDmDns")) {
        if (line.rfind(prefix, 0) == 0 && line.find("argv[") == std::string::npos) {
            lines.push_back(line.substr(line.find(": ", prefix.size()) + 2));
        }
    }
    return lines;
}

DiscoveryTest::Lines DiscoveryTest::tagged(const std::string& tag) const {
    Lines lines;
    for (const std::string& line : calls("log")) {
        if (line.compare(2, tag.size() + 2, tag + ": ") != 0) continue;
        lines.push_back(line.substr(0, 1) + line.substr(2 + tag.size()));
    }
    return lines;
}

DiscoveryTest::Lines DiscoveryTest::callbacks(size_t count) const {
    waitUntil([&] { return calls("callback").size() >= count; });
    return calls("callback");
}
