#include "local_address.h"

#include <sys/resource.h>

#include <cstring>

#include "DeviceTest.h"

namespace {

using LocalAddressTest = DeviceTest;

TEST_F(LocalAddressTest, ReadsTheInterfacesAddress) {
    char text[21];
    memset(text, '#', sizeof text);
    EXPECT_EQ(getSigmaLocalIpAddress(text, 20, "lo"), 0);
    EXPECT_STREQ(text, "127.0.0.1");
    EXPECT_EQ(text[20], '#');
    const std::vector<std::string> log = {
        "getSigmaLocalIpAddress :addr[100007f] \n",
        "getSigmaLocalIpAddress :local IP Address 127.0.0.1 \n",
    };
    EXPECT_EQ(logLines(), log);
}

TEST_F(LocalAddressTest, SaysWhyThereIsNone) {
    char text[32] = "kept";
    struct {
        char* buffer;
        int size;
        const char* interfaceName;
        const char* log;
    } const cases[] = {
        {nullptr, 32, "lo", "pLocalIpAddr is NULL\n"},
        {text, 19, "lo", "Not enough size for IPv4 ip address. Required min: 20, given: 19 \n"},
        {text, 32, "none0", "getSigmaLocalIpAddress :: No such device \n"},
        {text, 32, "a name of more than fifteen characters",
         "getSigmaLocalIpAddress :: No such device \n"},
        {text, 32, nullptr, "getSigmaLocalIpAddress :: No such device \n"},
    };
    for (const auto& c : cases) {
        mark();
        EXPECT_EQ(getSigmaLocalIpAddress(c.buffer, c.size, c.interfaceName), -1);
        EXPECT_EQ(logLines(), std::vector<std::string>{c.log});
        EXPECT_STREQ(text, "kept");
    }

    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    mark();
    setrlimit(RLIMIT_NOFILE, &none);
    const int result = getSigmaLocalIpAddress(text, 32, "lo");
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(logLines(),
              std::vector<std::string>{"getSigmaLocalIpAddress :Error in creating socket \n"});
}

}  // namespace
