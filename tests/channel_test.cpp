// The DNS-SD command channel: commands in, DNS-SD calls and answers out; results in, result lines
// and structured calls out.
#include <cerrno>

#include "ChannelTest.h"
#include "SystemFaults.h"
#include "cutils/properties.h"
#include "host/ScopedFault.h"
#include "host/text_format.h"

using hostplatform::Fault;
using hostplatform::format;
using hostplatform::ScopedFault;

namespace {

using Result = FakeDnsSd::Result;

const struct Operation {
    Lines command;
    const char* call;  // what it asks of DNS-SD
    // In its answers: when it has started, for an id in use, when DNS-SD refuses it.
    std::string started, name, refused;
} kOperations[] = {
    {{"discover", "7", "_x._tcp"},
     "browse(0, 0, _x._tcp, (null))",
     "Discover operation",
     "discover",
     "Discover request got an error from DNSServiceBrowse"},
    {{"register", "7", "A sink", "_x._tcp", "7236", "A2E9MQ=="},
     "register(0, 0, A sink, _x._tcp, (null), (null), 7236, 03613d31)",
     "serviceRegister",
     "register",
     "serviceRegister request got an error from DNSServiceRegister"},
    {{"resolve", "7", "A sink", "_x._tcp", "local."},
     "resolve(0, 0, A sink, _x._tcp, local.)",
     "resolveService",
     "resolve",
     "resolveService got an error from DNSServiceResolve"},
    {{"getaddrinfo", "7", "sink.local."},
     "getaddrinfo(0, 0, 0, sink.local.)",
     "getAddrInfo",
     "getAddrInfo",
     "getAddrInfo request got an error from DNSServiceGetAddrInfo"},
    {{"sethostname", "7", "sink"},
     "sethostname(0, sink)",
     "setHostname",
     "setHostname",
     "setHostname got an error from DNSSetHostname"},
};

TEST_F(ChannelTest, OperationsStartFailAndStop) {
    for (const Operation& operation : kOperations) {
        const std::string word = operation.command[0];
        SCOPED_TRACE(word);
        mark();
        library().failNextCall(kDNSServiceErr_Unknown);
        EXPECT_EQ(command(operation.command), "501 " + operation.refused);
        EXPECT_EQ(command({"stop-" + word, "7"}), "501 Unknown requestId");
        EXPECT_EQ(calls("dns-sd"), Lines{operation.call});
        for (const Operation& stopping : kOperations) {  // by the id, whatever started it
            EXPECT_EQ(command(operation.command), "200 " + operation.started + " started");
            EXPECT_EQ(calls("dns-sd").back(), operation.call);
            for (const Operation& other : kOperations) {
                EXPECT_EQ(command(other.command),
                          "501 RequestId already in use during " + other.name + " call");
            }
            const std::string& end = stopping.command[0];
            EXPECT_EQ(stop(7, end), "200 " + end + " stopped");
        }
        for (const size_t more : {0U, 2U}) {
            Lines words = operation.command;
            words.resize(words.size() + more - 1, "x");
            EXPECT_EQ(command(words), "501 Invalid number of arguments to mdnssd " + word);
            words = {"stop-" + word};
            words.resize(more + 1, "7");
            EXPECT_EQ(command(words), "501 Invalid number of arguments to " + word);
        }
    }
}

TEST_F(ChannelTest, CommandsAreReadWordByWord) {
    const std::string zeros(4 * 433, 'A');  // 1299 of them
    const struct {
        std::string port, txt, given;  // to DNS-SD; nothing when the text is refused
    } services[] = {
        {"1", "/+8=", "1, ffef)"},
        {"0", "YQ = =", "0, 61)"},  // blanks do not count
        {"65537", zeros + "AA==", "1, " + std::string(2600, '0') + ")"},
        {"-1", "", "65535, )"},
        {"x", "", "0, )"},
        {"1", zeros + "AAA=", ""},
        {"1", "!!!!", ""},
        {"1", "AAA", ""},
        {"1", "_-8=", ""},  // another alphabet
    };
    for (const auto& service : services) {
        SCOPED_TRACE(service.port + service.txt.substr(0, 10));
        const std::string answer = command({"register", "3", "s", "_", service.port, service.txt});
        EXPECT_EQ(answer == "501 Could not decode txtRecord", service.given.empty());
        if (service.given.empty()) continue;
        EXPECT_EQ(calls("dns-sd").back(), "register(0, 0, s, _, (null), (null), " + service.given);
        EXPECT_EQ(stop(3), kStopped);
    }
    for (const auto& [text, id] : {std::pair("x", 0), {"12x", 12}, {"-5", -5}}) {
        EXPECT_EQ(command({"discover", text, "_x._tcp"}), kStarted);
        EXPECT_EQ(stop(id), kStopped);
    }
    for (const char* const word : {"browse", "", "Discover"}) {
        EXPECT_EQ(command({word, "3", "_x._tcp"}), "500 Unknown mdnssd cmd");
    }
    for (const int count : {1, 0}) {
        EXPECT_EQ(mChannel.runCommand(count, nullptr), -1);
        EXPECT_EQ(std::exchange(TestListener::sAnswers, ""),
                  format("501 Invalid number of arguments to mdnssd: %d", count));
    }
}

TEST_F(ChannelTest, ResultsComeAsALineAndInParts) {
    const auto service = [](const std::string& name, DNSServiceFlags flags) {
        return Result{name, "_x._tcp.", "local.", "", 0, {}, "", 0, flags};
    };
    const auto resolved = [](const char* name, uint16_t port, std::vector<unsigned char> txt) {
        return Result{name, "", "", "h.local.", port, std::move(txt)};
    };
    const auto address = [](const char* text, uint32_t seconds) {
        return Result{"h.", "", "", "", 0, {}, text, seconds};
    };
    const auto error = [](DNSServiceErrorType code) {
        return Result{"", "", "", "", 0, {}, "", 0, 0, code};
    };
    const std::string v6 = "2001:db8:1111:2222:3333:4444:5555:6666";
    enum { Browse, Register, Resolve, GetAddrInfo, SetHostname };
    struct Case {
        int operation;
        Result result;
        std::string reported;  // the line and the parts
    };
    std::vector<Case> cases = {
        {Browse, service("q\"b\\%s\xc3\xa9", kDNSServiceFlagsAdd | kDNSServiceFlagsMoreComing),
         "603 7 \"q\\\"b\\\\%s\xc3\xa9\" _x._tcp. local. | 0 q\"b\\%s\xc3\xa9 _x._tcp. local."},
        {Browse, service("A", kDNSServiceFlagsMoreComing),
         "604 7 \"A\" _x._tcp. local. | 0 A _x._tcp. local."},
        {Browse, error(-65537), "602 7 -65537 | 602 (null) (null) (null)"},
        {Register, service("s (2)", 0), "606 7 \"s (2)\" | 0 s (2) _x._tcp. local."},
        {Register, error(-65548), "605 7 -65548 | 605 (null) (null) (null)"},
        {Resolve, resolved("A\\032s", 7236, {}),
         "608 7 \"A\\\\032s\" \"h.local.\" 7236 0 \"\" | 0 A\\032s h.local. 7236 0 "},
        {Resolve, resolved("s", 256, {0, 0xff}),
         "608 7 \"s\" \"h.local.\" 256 2 \"AP8=\" | 0 s h.local. 256 2 00ff"},
        {Resolve, resolved("s", 1, std::vector<unsigned char>(65535, 0)),
         "608 7 \"s\" \"h.local.\" 1 65535 \"" + std::string(87380, 'A') +
             "\" | 0 s h.local. 1 65535 " + std::string(131070, '0')},
        {Resolve, error(-65563), "607 7 -65563 | 607 (null) (null) 0 0 (null)"},
        {GetAddrInfo, address("192.168.49.1", 120),
         "612 7 \"h.\" 120 192.168.49.1 | 0 h. 192.168.49.1"},
        {GetAddrInfo, address(v6.c_str(), 0), "612 7 \"h.\" 0 " + v6 + " | 0 h. " + v6},
        {GetAddrInfo, error(-65538), "611 7 -65538 | 611 (null) (null)"},
        {SetHostname, error(-65540), "609 7 -65540"},
        // Quoting doubles it.
        {SetHostname, service(std::string(5000, '\\'), 0),
         "610 7 \"" + std::string(10000, '\\') + '"'},
    };
    // Lines about as long as the library's buffer for a short one.
    for (const size_t length : {0U, 506U, 507U, 508U}) {
        const std::string name(length, 'n');
        cases.push_back({SetHostname, service(name, 0), "610 7 \"" + name + '"'});
    }
    for (const Case& given : cases) {
        SCOPED_TRACE(given.reported.substr(0, 80));
        mark();
        EXPECT_EQ(command(kOperations[given.operation].command).substr(0, 3), "200");
        EXPECT_TRUE(library().answer(library().newest(), given.result));
        EXPECT_TRUE(waitUntil([] { return library().idle(); }));
        std::string reported;
        for (const std::string& call : calls("result")) reported += " | " + call;
        EXPECT_EQ(reported, " | " + given.reported);
        EXPECT_EQ(stop(7), kStopped);  // also one that has failed stays outstanding
        settle();
    }
}

TEST_F(ChannelTest, TheDaemonIsStartedAndStopped) {
    const std::string start = "ctl.start = \"mdnsd\"";
    const std::string stopped = "ctl.stop = \"mdnsd\"";
    const struct {
        const char* word;
        const char* state;  // at first
        int reads;          // until it has changed
        std::string answer;
        Lines requests;
        size_t sleeps;
    } cases[] = {
        {"start-service", "running", 0, "402 Service already running", {}, 0},
        {"start-service", "", 0, "200 Service Started", {start}, 1},
        {"start-service", "running2", 2, "200 Service Started", {start}, 3},
        {"start-service", "stopped", 99, "200 Service Started", {start}, 25},
        {"stop-service", "stopping", 2, "200 Service Stopped", {stopped}, 3},
        {"stop-service", "", 99, "200 Service Stopped", {stopped}, 25},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(std::string(given.word) + " " + given.state);
        device.properties().simulateMdns(true, given.reads);
        ASSERT_EQ(property_set("init.svc.mdnsd", given.state), 0);
        mark();
        EXPECT_EQ(command({given.word, "x", "y"}), given.answer);
        EXPECT_EQ(calls("property"), given.requests);
        EXPECT_EQ(calls("sleep"), Lines(given.sleeps, "200"));
    }
    mark();
    const DNSServiceRef ref = browse(1);
    const auto getsAResult = [&](uint32_t) {
        mark();
        EXPECT_TRUE(library().answer(ref, {}) && waitResult(1));
    };
    getsAResult(0);  // now no rescan is due
    device.clock().onSleep(getsAResult);
    EXPECT_EQ(command({"start-service"}), "200 Service Started");
    device.clock().onSleep(nullptr);
    mark();
    EXPECT_EQ(command({"stop-service"}), "403 Service still in use");
    EXPECT_EQ(calls("property"), Lines{});
    EXPECT_EQ(stop(1), kStopped);
    EXPECT_TRUE(waitUntil([&] { return command({"stop-service"}) == "200 Service Stopped"; }));
}

TEST_F(ChannelTest, WithoutMemoryOrAThreadCommandsAreRefused) {
    const auto refuses = [this] {
        MDnsSdChannel channel(&mListener);
        char word[] = "stop-discover";
        char* arguments[] = {word, word, word};
        EXPECT_EQ(channel.runCommand(1, arguments), -1);
        for (const int count : {3, 2}) {
            TestListener::sAnswers.clear();
            EXPECT_EQ(channel.runCommand(count, arguments), 0);
            EXPECT_EQ(TestListener::sAnswers, "501 mdnssd monitor is not running");
        }
        TestListener::sAnswers.clear();
    };
    for (const int after : {0, 1}) {
        const SystemFault fault(SystemCall::New, ENOMEM, 1, after);
        refuses();  // without the monitor, the handler
    }
    for (const int after : {0, 1}) {
        const SystemFault fault(SystemCall::New, ENOMEM, 1, after);
        EXPECT_EQ(start(1), "501 No memory for the request");  // its context, the element
    }
    const ScopedFault fault(Fault::ThreadCreation);
    refuses();
}

}  // namespace
