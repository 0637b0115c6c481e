#include "agent/LineSplitter.h"

#include <utility>

namespace agent {

std::vector<Line> LineSplitter::feed(std::string_view bytes) {
    std::vector<Line> lines;
    while (!bytes.empty()) {
        const auto end = bytes.find('\n');
        const bool ended = end != std::string_view::npos;
        const std::string_view part = bytes.substr(0, end);
        if (!mSkipping) {
            mPending += part;
            // A CR right after the longest line may still turn out to be part of its end.
            if (mPending.size() > kMaxLine + 1 ||
                (mPending.size() == kMaxLine + 1 && mPending.back() != '\r')) {
                lines.push_back({{}, "it has more than 65536 bytes"});
                mPending = {};
                mSkipping = true;
            }
        }
        if (!ended) break;
        if (!std::exchange(mSkipping, false)) lines.push_back(take());
        bytes.remove_prefix(end + 1);
    }
    return lines;
}

std::optional<Line> LineSplitter::finish() {
    if (std::exchange(mSkipping, false) || mPending.empty()) return std::nullopt;
    return take();
}

Line LineSplitter::take() {
    std::string text = std::exchange(mPending, {});
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (text.find('\0') != std::string::npos) return {{}, "it has a NUL byte"};
    return {std::move(text), nullptr};
}

}  // namespace agent
