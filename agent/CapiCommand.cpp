#include "CapiCommand.h"

#include "Text.h"

namespace agent {

namespace {

// Takes the text up to the next comma off `rest`, and the comma.
std::string_view nextToken(std::string_view& rest) {
    const auto comma = rest.find(',');
    const std::string_view token = rest.substr(0, comma);
    rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
    return trimmed(token);
}

}  // namespace

std::optional<CapiCommand> CapiCommand::parse(std::string_view line) {
    std::string_view rest = trimmedRight(line);
    CapiCommand command;
    command.mName = lowerCase(nextToken(rest));
    if (command.mName.empty()) return std::nullopt;
    command.mParameters = rest;
    return command;
}

std::string CapiCommand::parameter(std::string_view name) const {
    std::string_view rest = mParameters;
    while (!rest.empty()) {
        const std::string_view found = nextToken(rest);
        const std::string_view value = nextToken(rest);
        if (equalsIgnoreCase(found, name)) return std::string(value);
    }
    return {};
}

}  // namespace agent
