// What the tests of R2 discovery share: the library on a device whose DNS-SD and time are in the
// test's hands, and the other ends of the trigger.
//
// Device time. A thread's clock shows how long it has slept in all, so that a wait is as long as
// its sleeps say, however busy the machine is. A sleep is an entry of the journal's component
// "sleep". On the test's own thread it takes no real time, but in one of a second or more
// everything that has a result coming gets it.
#pragma once

#include <asio/ip/tcp.hpp>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "ChannelTest.h"
#include "DeviceTest.h"
#include "FakeDnsSd.h"
#include "WfdDiscovery.h"

// Polls a condition of another thread, at most 20 seconds; whether it came about.
bool waitUntil(const std::function<bool()>& condition);

// Note each call as an entry of the component "callback": "NAME(result, service name, type, domain,
// address, port)", "NAME(result)" without a record, "NAME(address, port)". On any thread.
void noteResult(char name, int result, const MDnsWfdServiceInfo* info);
void noteTrigger(char name, const char* address, int port);
template <char Name>
void noted(int result, const MDnsWfdServiceInfo* info) {
    noteResult(Name, result, info);
}
template <char Name>
void triggered(const char* address, int port) {
    noteTrigger(Name, address, port);
}

// One end of a TCP connection on this host.
class Connection {
 public:
    // A source's to a port. Throws std::system_error.
    explicit Connection(int port, const char* from = "127.0.0.1");
    explicit Connection(asio::ip::tcp::socket socket) : mSocket(std::move(socket)) {}
    void send(const std::string& bytes);
    void sendEnd() { mSocket.shutdown(asio::ip::tcp::socket::shutdown_send); }
    // All that comes until the connection ends, in hex; with "(open)" when it does not end in time.
    std::string received();

 private:
    asio::ip::tcp::socket mSocket;
};

// Sends a command on a connection of its own, which the sink closes when it has dealt with it.
void sendCommand(int port, const std::string& bytes);

// A sink on a port of its own, which refuses connections until it listens.
class Sink {
 public:
    explicit Sink(const char* address = "127.0.0.1");
    int port() const { return mAcceptor.local_endpoint().port(); }
    void listen() { mAcceptor.listen(); }
    // What comes on one connection, as above; "(nobody)" when none is made in time.
    std::string received();
    // Whether a connection waits.
    bool reached();

 private:
    asio::ip::tcp::acceptor mAcceptor;
};

// At the end of a test there is no discovery object, and the fake must have nothing to complain of
// and nothing left.
class DiscoveryTest : public FastDeviceTest {
 protected:
    using Lines = std::vector<std::string>;
    using Result = FakeDnsSd::Result;

    DiscoveryTest();
    ~DiscoveryTest() override;

    static FakeDnsSd& library() { return FakeDnsSd::instance(); }
    static Result service(const std::string& name, bool found = true);  // of _display._tcp. local.
    static Result resolved(const std::string& host, int port);
    static Result address(const std::string& text);
    static Result failure();

    // Requests are known by what they ask for: a service type, an instance name or a host name.
    //
    // Answers each request for it from now on at once, also before the call that starts it returns.
    void answer(const std::string& name, const std::vector<Result>& results);
    // Lets the newest request for it have one more result, and waits until that has been dealt
    // with; waits until there is such a request.
    void report(const std::string& name, const Result& result);

    // Does something during the nth sleep of that length from now on, on this thread.
    static void onSleep(uint32_t milliseconds, int nth, std::function<void()> action);
    // How often this thread has slept that long since the mark.
    size_t slept(uint32_t milliseconds) const;

    void clear();  // ends the discovery object
    // Waits until the object's channel has forgotten all requests that are stopped: their ids are
    // free then.
    bool waitForgotten();

    // The commands to the channel since the mark, from any thread, as "SEQUENCE WORD ARGUMENT...".
    Lines commands() const;
    // What any thread has logged under a tag since the mark, as "PRIORITY: TEXT".
    Lines tagged(const std::string& tag) const;
    // The callbacks noted since the mark, once there are that many.
    Lines callbacks(size_t count) const;

 private:
    void onStart(DNSServiceRef ref, const std::string& name);

    uint64_t mObjectMark;  // the discovery object is younger
    std::mutex mMutex;     // guards everything below
    std::condition_variable mStarted;
    std::map<std::string, std::vector<Result>> mAnswers;
    std::map<std::string, DNSServiceRef> mNewest;
};
