// The library's discovery with DNS-SD and device time in the test's hands, and the other ends of
// the trigger.
//
// Device time passes in sleeps only. In a sleep of the test's own thread of a second or more, every
// result that is waiting is reported first.
#pragma once

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "DeviceTest.h"
#include "FakeDnsSd.h"
#include "cutils/properties.h"
#include "host/text_format.h"
#include "wfd_discovery.h"

inline asio::io_context& sockets() {
    static asio::io_context context;
    return context;
}

// One end of a connection to or from a trigger server. Check connected() after connecting to a
// port.
class Connection {
 public:
    explicit Connection(int port, const char* from = "127.0.0.1")
        : mSocket(sockets(), {asio::ip::make_address(from), 0}) {
        std::error_code error;
        mSocket.connect({asio::ip::address_v4::loopback(), static_cast<uint16_t>(port)}, error);
        if (error) mSocket.close();
    }
    explicit Connection(asio::ip::tcp::socket socket) : mSocket(std::move(socket)) {}
    bool connected() const { return mSocket.is_open(); }
    void send(const std::string& bytes) {
        std::error_code error;  // the server may have gone
        asio::write(mSocket, asio::buffer(bytes), error);
    }
    void sendEnd() { mSocket.shutdown(asio::ip::tcp::socket::shutdown_send); }
    // All that comes until the connection ends.
    std::string received() {
        std::string bytes;
        std::error_code end;
        asio::read(mSocket, asio::dynamic_buffer(bytes), end);
        return bytes;
    }

 private:
    asio::ip::tcp::socket mSocket;
};

// Sends a trigger on a connection of its own and waits until the server has closed that.
inline void sendTrigger(int port) {
    Connection source(port);
    source.send(std::string("\0\2\x1c\x44", 4));
    EXPECT_EQ(source.received(), "");
}

// A sink on a port of its own, which refuses connections until it listens.
class Sink {
 public:
    explicit Sink(const char* address = "127.0.0.1") : mAcceptor(sockets()) {
        mAcceptor.open(asio::ip::tcp::v4());
        mAcceptor.bind({asio::ip::make_address(address), 0});
    }
    int port() const { return mAcceptor.local_endpoint().port(); }
    void listen() { mAcceptor.listen(); }
    // Whether a connection waits, or comes soon.
    bool reached() {
        pollfd ready{mAcceptor.native_handle(), POLLIN, 0};
        return poll(&ready, 1, 100) > 0 && (ready.revents & POLLIN) != 0;
    }
    // What such a connection brings, in hex; nothing without one.
    std::string received() {
        std::string text;
        if (!reached()) return text;
        for (const char byte : Connection(mAcceptor.accept()).received()) {
            text += hostplatform::format("%02x", byte & 0xff);
        }
        return text;
    }

 private:
    asio::ip::tcp::acceptor mAcceptor;
};

// The text of a response, which is freed; empty without one.
inline std::string taken(char* response) {
    const std::string text = response == nullptr ? "" : response;
    free(response);
    return text;
}

// The port of the service registered last from that entry of the journal on.
inline int registeredPort(uint64_t from) {
    int port = 0;
    for (const std::string& call : hostplatform::device().journal().texts("dns-sd", from)) {
        sscanf(call.c_str(), "register(0, 0, %*[^,], _display%*[^,], (null), (null), %d", &port);
    }
    return port;
}

// Each test begins and ends without a discovery object.
class DiscoveryTest : public DeviceTest {
 protected:
    using Result = FakeDnsSd::Result;

    DiscoveryTest() {
        mThreads = LONG_MAX;  // monitors and trigger servers stay
        device.clock().onSleep([this](uint32_t milliseconds) {
            if (gettid() != getpid()) return;
            if (milliseconds == mAwaited && --mSleepsLeft == 0) mSleepAction();
            if (milliseconds >= 1000) settle();
        });
        device.properties().simulateMdns(true);
        library().onStart([this](DNSServiceRef ref, const std::string& name) {
            const std::lock_guard lock(mMutex);
            for (const Result& result : mAnswers[name]) library().answer(ref, result);
            mNewest[name] = ref;
        });
    }
    ~DiscoveryTest() override {
        device.clock().onSleep(nullptr);
        mDnsClearInstances();
        library().onStart(nullptr);
        EXPECT_EQ(library().takeViolations(), Lines{});
        EXPECT_EQ(library().liveCount(), 0U) << "a request goes on without the object";
        property_set("ctl.stop", "mdnsd");
    }

    static FakeDnsSd& library() { return FakeDnsSd::instance(); }
    static Result service(const std::string& name, DNSServiceFlags flags = kDNSServiceFlagsAdd) {
        return {name, "_display._tcp.", "local.", "", 0, {}, "", 0, flags};
    }
    static Result resolved(int port) {
        return {"", "", "", "peer.local.", static_cast<uint16_t>(port)};
    }
    static Result address(const std::string& text) {
        return {"peer.local.", "", "", "", 0, {}, text};
    }
    static Result failure() { return {"", "", "", "", 0, {}, "", 0, 0, kDNSServiceErr_Unknown}; }

    // Answers each further request with that name at once. Empty: no more.
    void answer(const std::string& name, const std::vector<Result>& results) {
        const std::lock_guard lock(mMutex);
        mAnswers[name] = results;
    }
    // Reports one more result of the newest request with that name, and waits for its callbacks.
    void report(const std::string& name, const Result& result) {
        std::unique_lock lock(mMutex);
        EXPECT_TRUE(library().answer(mNewest[name], result)) << "no request for " << name;
        lock.unlock();
        settle();
    }
    static void settle() {  // waits until all results have been reported
        EXPECT_TRUE(waitUntil([] { return library().idle(); }));
        EXPECT_TRUE(hostplatform::device().session().waitReported());
    }

    // Does something during the nth sleep of that length on this thread from now on; at once when
    // `nth` is 0, never when it is negative.
    void onSleep(uint32_t milliseconds, int nth, std::function<void()> action) {
        if (nth == 0) action();
        mAwaited = milliseconds;
        mSleepsLeft = nth;
        mSleepAction = std::move(action);
    }
    size_t slept(uint32_t milliseconds) const {
        const Lines sleeps = calls("sleep");
        return static_cast<size_t>(
            std::count(sleeps.begin(), sleeps.end(), std::to_string(milliseconds)));
    }

    // The calls of these callbacks are entries of the component "callback".
    static void noteRecord(const char* name, int result, const MDnsWfdServiceInfo* info) {
        std::string text = hostplatform::format("%s: %d", name, result);
        if (info != nullptr) {
            text += hostplatform::format(" %s %s %s %s %d", info->serviceName, info->regType,
                                         info->domain, info->ipAddress, info->port);
        }
        hostplatform::device().journal().add("callback", text);
    }
    static void first(int result, const MDnsWfdServiceInfo* info) { noteRecord("1", result, info); }
    static void second(int result, const MDnsWfdServiceInfo* info) {
        noteRecord("2", result, info);
    }
    static void triggered(const char* address, int port) {
        hostplatform::device().journal().add("callback",
                                             hostplatform::format("%s %d", address, port));
    }
    Lines callbacks() const { return calls("callback"); }
    int triggerPort() const { return registeredPort(marked()); }  // of the sink registered last

 private:
    uint32_t mAwaited = 0;
    int mSleepsLeft = 0;
    std::function<void()> mSleepAction;
    std::mutex mMutex;  // guards everything below
    std::map<std::string, std::vector<Result>> mAnswers;
    std::map<std::string, DNSServiceRef> mNewest;
};
