#include "LineSplitter.h"

#include <utility>

namespace agent {

std::vector<Line> LineSplitter::feed(std::string_view bytes) {
    std::vector<Line> lines;
    while (!bytes.empty()) {
        const auto end = bytes.find('\n');
        const bool overflowed = append(bytes.substr(0, end));
        if (overflowed) lines.push_back({Line::Kind::TooLong, {}});
        if (end == std::string_view::npos) break;
        if (!mSkipping) lines.push_back(take());
        mSkipping = false;
        bytes.remove_prefix(end + 1);
    }
    return lines;
}

std::optional<Line> LineSplitter::finish() {
    if (std::exchange(mSkipping, false) || mPending.empty()) return std::nullopt;
    return take();
}

// True when this makes the line too long.
bool LineSplitter::append(std::string_view part) {
    if (mSkipping || part.empty()) return false;
    const std::size_t size = mPending.size() + part.size();
    // A CR right after the longest line may still turn out to be part of its end.
    if (size > kMaxLine + 1 || (size == kMaxLine + 1 && part.back() != '\r')) {
        mSkipping = true;
        mPending = {};
        return true;
    }
    mPending += part;
    return false;
}

Line LineSplitter::take() {
    std::string text = std::exchange(mPending, {});
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (text.find('\0') != std::string::npos) return {Line::Kind::HasNul, {}};
    return {Line::Kind::Text, std::move(text)};
}

}  // namespace agent
