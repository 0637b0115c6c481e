#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "LineSplitter.h"

namespace {

using agent::Line;
using agent::LineSplitter;

// "text" for a line, "!long" and "!nul" for those not to be used, "+text" for the incomplete last
// one.
std::vector<std::string> split(std::string_view bytes, std::size_t chunk) {
    const auto describe = [](const Line& line) {
        if (line.kind == Line::Kind::TooLong) return std::string("!long") + line.text;
        if (line.kind == Line::Kind::HasNul) return std::string("!nul") + line.text;
        return line.text;
    };
    LineSplitter splitter;
    std::vector<std::string> result;
    for (std::size_t at = 0; at < bytes.size(); at += chunk) {
        for (const Line& line : splitter.feed(bytes.substr(at, chunk))) {
            result.push_back(describe(line));
        }
    }
    if (const auto last = splitter.finish()) result.push_back("+" + describe(*last));
    return result;
}

std::string xs(std::size_t count) { return std::string(count, 'x'); }

TEST(LineSplitter, SplitsHoweverTheBytesArrive) {
    using namespace std::string_literals;
    constexpr std::size_t kMax = 65536;
    const struct {
        const char* name;
        std::string bytes;
        std::vector<std::string> lines;
    } cases[] = {
        {"nothing", "", {}},
        {"LF and CRLF", "a\nbc\r\n\n\r\nd\n", {"a", "bc", "", "", "d"}},
        {"CR elsewhere", "a\rb\r\r\nc\n", {"a\rb\r", "c"}},
        {"blanks stay", " a , \t\r\n", {" a , \t"}},
        {"no last end", "a\nb", {"a", "+b"}},
        {"no last end but CR", "a\nb\r", {"a", "+b"}},
        {"NUL", "a\0b\nc\n\0\n\0"s, {"!nul", "c", "!nul", "+!nul"}},
        {"longest", xs(kMax) + "\na\n", {xs(kMax), "a"}},
        {"longest, CRLF", xs(kMax) + "\r\na\n", {xs(kMax), "a"}},
        {"longest, no end", "a\n" + xs(kMax), {"a", "+" + xs(kMax)}},
        {"one too many", xs(kMax + 1) + "\na\n", {"!long", "a"}},
        {"one too many, CRLF", xs(kMax + 1) + "\r\na\n", {"!long", "a"}},
        {"CR counts inside", xs(kMax) + "\r\r\na\n", {"!long", "a"}},
        {"much too long", "a\n" + xs(5 * kMax) + "\0\nb\n"s, {"a", "!long", "b"}},
        {"too long twice",
         xs(2 * kMax) + "\n" + xs(2 * kMax) + "\nz",  //
         {"!long", "!long", "+z"}},
        {"too long, no end", "a\n" + xs(kMax + 2), {"a", "!long"}},
    };
    for (const auto& c : cases) {
        for (const std::size_t chunk :
             {std::size_t{1}, std::size_t{2}, std::size_t{3}, std::size_t{16384}, kMax, kMax + 1,
              std::max<std::size_t>(c.bytes.size(), 1)}) {
            EXPECT_TRUE(split(c.bytes, chunk) == c.lines) << c.name << " in chunks of " << chunk;
        }
    }
}

TEST(LineSplitter, ReportsTooLongBeforeTheLineEnds) {
    LineSplitter splitter;
    EXPECT_TRUE(splitter.feed(xs(65536)).empty());
    const auto lines = splitter.feed("x");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].kind, Line::Kind::TooLong);
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(splitter.feed(xs(65536)).empty());
}

TEST(LineSplitter, IsAsNewAfterFinish) {
    LineSplitter splitter;
    splitter.feed(xs(70000));
    EXPECT_FALSE(splitter.finish());
    splitter.feed("ab");
    EXPECT_EQ(splitter.finish()->text, "ab");
    EXPECT_FALSE(splitter.finish());
}

}  // namespace
