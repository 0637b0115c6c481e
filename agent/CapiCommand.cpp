#include "agent/CapiCommand.h"

#include <cstddef>

#include "agent/Text.h"

namespace agent {

CapiCommand::CapiCommand(std::string_view line) {
    while (true) {
        const std::size_t comma = line.find(',');
        mTokens.emplace_back(trimmed(line.substr(0, comma)));
        if (comma == std::string_view::npos) break;
        line.remove_prefix(comma + 1);
    }
    mName = lowerCase(mTokens.front());
}

std::string CapiCommand::parameters() const {
    std::string text;
    for (std::size_t i = 1; i < mTokens.size(); ++i) text += (i == 1 ? "" : ",") + mTokens[i];
    return text;
}

std::string CapiCommand::parameter(std::string_view name) const {
    for (std::size_t i = 1; i + 1 < mTokens.size(); i += 2) {
        if (lowerCase(mTokens[i]) == name) return mTokens[i + 1];
    }
    return {};
}

}  // namespace agent
