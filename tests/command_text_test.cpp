#include <cstring>

#include "DeviceTest.h"

namespace {

using CommandTextTest = DeviceTest;

struct ParameterCase {
    const char* command;
    const char* name;
    int size;
    int result;
    std::string value;  // what the buffer holds afterwards; it held "old"
};

TEST_F(CommandTextTest, FindsValues) {
    const std::string fits(511, 'v');
    const std::string tooLong(512, 'v');
    const std::string longest = "n," + fits;
    const std::string longer = "n," + tooLong;
    const ParameterCase cases[] = {
        {"UIBCEventType,x,Type,y", "Type", 32, 0, "x"},  // found inside the longer name
        {"a,,b,c", "a", 32, 0, ""},
        {"x,1,name,abc", "name", 32, 0, "abc"},
        {"NAME=abc,more", "name", 32, 0, "abc"},
        {"x,framename,RTSP,y", "FRAMENAME", 32, 0, "RTSP"},
        {"x,name", "name", 32, 0, ""},   // ends with its name
        {"x,name,", "name", 32, 0, ""},  // or with the separator
        {"a,b", "c", 32, -1, "old"},
        {"", "c", 32, -1, "old"},
        {nullptr, "c", 32, -1, "old"},
        {"a,b", nullptr, 32, -1, "old"},
        {"n,1234567", "n", 8, 0, "1234567"},
        {"n,12345678", "n", 8, 0, "old"},
        {"n,12345678,x,y", "n", 8, 0, "old"},
        {longest.c_str(), "n", 512, 0, fits},
        {longer.c_str(), "n", 512, 0, "old"},
        {longer.c_str(), "n", 1000, 0, "old"},  // no buffer takes more than 511 characters
        {"n,x", "n", 0, 0, "old"},
        {"n,,x", "n", 0, 0, "old"},
        {"n,x", "n", -1, 0, "old"},
    };
    for (const ParameterCase& c : cases) {
        SCOPED_TRACE(c.command == nullptr ? "(null)" : std::string(c.command).substr(0, 40));
        char buffer[1024] = "old";
        EXPECT_EQ(get_param(c.command, c.name, buffer, c.size), c.result);
        EXPECT_EQ(buffer, c.value);
    }
    EXPECT_EQ(get_param("n,x", "n", nullptr, 32), 0);
}

TEST_F(CommandTextTest, LogsWhatItFound) {
    char buffer[8] = "";
    get_param("a,1,Name,abc,b,2", "name", buffer, sizeof buffer);
    get_param("name,12345678", "name", buffer, sizeof buffer);
    get_param("a,1", "name", buffer, sizeof buffer);
    const std::vector<std::string> expected = {
        "vestor: DBG: strstr output Name,abc,b,2",
        "Output calculated = abc",
        "vestor: DBG: strstr output name,12345678",
        "Output calculated = abc",
        "String token not found",
    };
    EXPECT_EQ(logLines(), expected);
}

}  // namespace
