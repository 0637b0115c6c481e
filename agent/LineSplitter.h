// Cuts a stream of bytes from an untrusted sender into lines.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace agent {

struct Line {
    std::string text;  // without its end; empty when refused
    const char* fault =
        nullptr;  // why the line is refused, as an English clause; null if it is not
};

// Lines end with LF or CRLF; a line's end does not count as part of its length. Holds at most one
// line's bytes, however much it is fed. Not for use by several threads at once.
class LineSplitter {
 public:
    static constexpr std::size_t kMaxLine = 65536;

    // Takes the next bytes and returns the lines that they complete, in order. A line that is too
    // long is reported once, as soon as that is certain, and then skipped up to its end.
    std::vector<Line> feed(std::string_view bytes);

    // At the end of the stream: the bytes after the last line end, or nothing if there are none or
    // they were reported as too long before.
    std::optional<Line> finish();

 private:
    Line take();

    std::string mPending;    // of the line not yet ended; one byte more than kMaxLine for a CR
    bool mSkipping = false;  // the line not yet ended was reported as too long
};

}  // namespace agent
