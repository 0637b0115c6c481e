// DNS-SD results as the channel's listener gets them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ChannelTest.h"

namespace {

using Lines = std::vector<std::string>;
using Result = FakeDnsSd::Result;

const Lines kDiscover{"discover", "7", "_x._tcp"};
const Lines kRegister{"register", "7", "s", "_x._tcp", "1", ""};
const Lines kResolve{"resolve", "7", "s", "_x._tcp", "local."};
const Lines kGetAddrInfo{"getaddrinfo", "7", "h.local."};
const Lines kSetHostname{"sethostname", "7", "h"};

Result error(DNSServiceErrorType code) {
    Result result;
    result.error = code;
    return result;
}

Result service(DNSServiceFlags flags, const std::string& name) {
    Result result;
    result.flags = flags;
    result.name = name;
    result.type = "_x._tcp.";
    result.domain = "local.";
    return result;
}

Result resolved(const std::string& name, const std::string& target, uint16_t port,
                std::vector<unsigned char> txt) {
    Result result;
    result.name = name;
    result.target = target;
    result.port = port;
    result.txt = std::move(txt);
    return result;
}

Result address(const std::string& text, uint32_t timeToLive, DNSServiceFlags flags) {
    Result result;
    result.name = "h.local.";
    result.address = text;
    result.timeToLive = timeToLive;
    result.flags = flags;
    return result;
}

Result name(const std::string& text) {
    Result result;
    result.name = text;
    return result;
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    while (times-- > 0) all += text;
    return all;
}

TEST_F(ChannelTest, ReportsResults) {
    const DNSServiceFlags add = kDNSServiceFlagsAdd;
    const DNSServiceFlags more = kDNSServiceFlagsMoreComing;
    const struct {
        Lines command;
        Result result;
        Lines trace;
    } cases[] = {
        {kDiscover,
         service(add, "A sink"),
         {"D/MDnsDS: Discover found new serviceName A sink, regType _x._tcp. and domain local. for "
          "7",
          "sendBroadcast(603, 7 \"A sink\" _x._tcp. local., 0)",
          "onDiscoverResult(0, A sink, _x._tcp., local.)"}},
        {kDiscover,
         service(more, "A sink"),
         {"D/MDnsDS: Discover lost serviceName A sink, regType _x._tcp. and domain local. for 7",
          "sendBroadcast(604, 7 \"A sink\" _x._tcp. local., 0)",
          "onDiscoverResult(0, A sink, _x._tcp., local.)"}},
        {kDiscover,
         service(add | more, "q\"b\\%s\xc3\xa9"),
         {"D/MDnsDS: Discover found new serviceName q\"b\\%s\xc3\xa9, regType _x._tcp. and domain "
          "local. for 7",
          "sendBroadcast(603, 7 \"q\\\"b\\\\%s\xc3\xa9\" _x._tcp. local., 0)",
          "onDiscoverResult(0, q\"b\\%s\xc3\xa9, _x._tcp., local.)"}},
        {kDiscover,
         error(-65537),
         {"sendBroadcast(602, 7 -65537, 0)", "onDiscoverResult(602, (null), (null), (null))",
          "E/MDnsDS: discover failure for 7, error= -65537"}},
        {kRegister,
         service(add, "s (2)"),
         {"sendBroadcast(606, 7 \"s (2)\", 0)", "onRegisterResult(0, s (2), _x._tcp., local.)",
          "D/MDnsDS: register succeeded for 7 as s (2)"}},
        {kRegister,
         error(-65548),
         {"sendBroadcast(605, 7 -65548, 0)", "onRegisterResult(605, (null), (null), (null))",
          "E/MDnsDS: register failure for 7, error= -65548"}},
        {kResolve,
         resolved("A\\032sink._x._tcp.local.", "h.local.", 7236, {}),
         {"sendBroadcast(608, 7 \"A\\\\032sink._x._tcp.local.\" \"h.local.\" 7236 0 \"\", 0)",
          "onResolveResult(0, A\\032sink._x._tcp.local., h.local., 7236, 0, )",
          "D/MDnsDS: resolve succeeded for 7 finding A\\032sink._x._tcp.local. at h.local.:7236 "
          "with txtLen 0"}},
        {kResolve,
         resolved("s", "h", 65535, {0xff}),
         {"sendBroadcast(608, 7 \"s\" \"h\" 65535 1 \"/w==\", 0)",
          "onResolveResult(0, s, h, 65535, 1, ff)",
          "D/MDnsDS: resolve succeeded for 7 finding s at h:65535 with txtLen 1"}},
        {kResolve,
         resolved("s", "h", 1, {0x01, 0x61}),
         {"sendBroadcast(608, 7 \"s\" \"h\" 1 2 \"AWE=\", 0)",
          "onResolveResult(0, s, h, 1, 2, 0161)",
          "D/MDnsDS: resolve succeeded for 7 finding s at h:1 with txtLen 2"}},
        {kResolve,
         resolved("s", "h", 256, {0x02, 0x00, 0xfb}),
         {"sendBroadcast(608, 7 \"s\" \"h\" 256 3 \"AgD7\", 0)",
          "onResolveResult(0, s, h, 256, 3, 0200fb)",
          "D/MDnsDS: resolve succeeded for 7 finding s at h:256 with txtLen 3"}},
        {kResolve,
         resolved("s", "h", 1, std::vector<unsigned char>(65535, 0)),
         {"sendBroadcast(608, 7 \"s\" \"h\" 1 65535 \"" + repeated("AAAA", 21845) + "\", 0)",
          "onResolveResult(0, s, h, 1, 65535, " + repeated("00", 65535) + ")",
          "D/MDnsDS: resolve succeeded for 7 finding s at h:1 with txtLen 65535"}},
        {kResolve,
         error(-65563),
         {"sendBroadcast(607, 7 -65563, 0)", "onResolveResult(607, (null), (null), 0, 0, (null))",
          "E/MDnsDS: resolve failure for 7, error= -65563"}},
        {kGetAddrInfo,
         address("192.168.49.1", 120, add),
         {"sendBroadcast(612, 7 \"h.local.\" 120 192.168.49.1, 0)",
          "onGetAddrResult(0, h.local., 192.168.49.1)",
          "D/MDnsDS: getAddrInfo succeeded for 7: 7 \"h.local.\" 120 192.168.49.1"}},
        {kGetAddrInfo,
         address("fe80::1", 0, 0),  // one that went away is reported alike
         {"sendBroadcast(612, 7 \"h.local.\" 0 fe80::1, 0)",
          "onGetAddrResult(0, h.local., fe80::1)",
          "D/MDnsDS: getAddrInfo succeeded for 7: 7 \"h.local.\" 0 fe80::1"}},
        {kGetAddrInfo,
         address("2001:db8:1111:2222:3333:4444:5555:6666", 4500, add),
         {"sendBroadcast(612, 7 \"h.local.\" 4500 2001:db8:1111:2222:3333:4444:5555:6666, 0)",
          "onGetAddrResult(0, h.local., 2001:db8:1111:2222:3333:4444:5555:6666)",
          "D/MDnsDS: getAddrInfo succeeded for 7: 7 \"h.local.\" 4500 "
          "2001:db8:1111:2222:3333:4444:5555:6666"}},
        {kGetAddrInfo,
         error(-65538),
         {"sendBroadcast(611, 7 -65538, 0)", "onGetAddrResult(611, (null), (null))",
          "E/MDnsDS: getAddrInfo failure for 7, error= -65538"}},
        {kSetHostname,
         name("my sink-2"),
         {"sendBroadcast(610, 7 \"my sink-2\", 0)",
          "D/MDnsDS: setHostname succeeded for 7.  Set to my sink-2"}},
        {kSetHostname,
         error(-65540),
         {"sendBroadcast(609, 7 -65540, 0)", "E/MDnsDS: setHostname failure for 7, error= -65540"}},
    };
    for (const auto& given : cases) {
        SCOPED_TRACE(given.trace[0].substr(0, 80));
        mark();
        command(given.command);
        EXPECT_EQ(waitRescanned(), 2);
        mark();
        EXPECT_TRUE(library().answer(library().newest(), given.result));
        EXPECT_TRUE(journal().waitFor("log", "Going to poll", marked()));
        EXPECT_EQ(resultTrace(), given.trace);

        // Also one that failed stays outstanding.
        EXPECT_EQ(answer(given.command).substr(0, 25), "501 RequestId already in ");
        EXPECT_EQ(stop(7, "x").substr(0, 3), "500");
        EXPECT_EQ(stop(7), "200 discover stopped");
        EXPECT_EQ(waitRescanned(), 1);
    }
}

TEST_F(ChannelTest, ReportsUnderTheIdOfTheRequest) {
    for (const int id : {-2147483647 - 1, 0, 2147483647}) {
        mark();
        EXPECT_TRUE(library().answer(browse(id), service(kDNSServiceFlagsAdd, "s")));
        EXPECT_TRUE(journal().waitFor(
            "listener", "sendBroadcast(603, " + std::to_string(id) + " \"s\"", marked()));
        stop(id);
        EXPECT_EQ(waitRescanned(), 1);
    }
}

TEST(MDnsQuoting, EscapesQuotesAndBackslashesAlone) {
    const struct {
        std::string text;
        std::string quoted;
    } cases[] = {
        {"", "\"\""},
        {"a\"b", "\"a\\\"b\""},
        {"\\", "\"\\\\\""},
        {"\"\"\"\"", "\"\\\"\\\"\\\"\\\"\""},
        {"a b\t\n'\x01\x7f\xff", "\"a b\t\n'\x01\x7f\xff\""},
        {std::string(5000, '\\'), '"' + std::string(10000, '\\') + '"'},
    };
    for (const auto& given : cases) {
        char* const quoted = MDnsResultListener::quoteArg(given.text.c_str());
        EXPECT_EQ(quoted, given.quoted);
        free(quoted);
    }
}

}  // namespace
