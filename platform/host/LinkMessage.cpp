#include "LinkMessage.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <system_error>

#include "TextFormat.h"

namespace hostplatform {

namespace {

using Kind = LinkMessage::Kind;

constexpr struct {
    Kind kind;
    std::string_view word;
} kWords[] = {
    {Kind::Sink, "wfd-sink-1"}, {Kind::Session, "session"}, {Kind::Pause, "pause"},
    {Kind::Play, "play"},       {Kind::Standby, "standby"}, {Kind::Teardown, "teardown"},
    {Kind::Input, "input"},
};

// The whole of `text` as a number.
template <typename Number>
bool parseNumber(std::string_view text, Number& number, int base) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && stop == end;
}

std::string toHex(const WFD_uibc_event_t& event) {
    uint8_t bytes[sizeof event];
    memcpy(bytes, &event, sizeof event);
    size_t size = sizeof bytes;
    while (size > 1 && bytes[size - 1] == 0) --size;
    std::string text;
    for (size_t i = 0; i < size; ++i) text += format("%02x", bytes[i]);
    return text;
}

bool parseHex(std::string_view text, WFD_uibc_event_t& event) {
    uint8_t bytes[sizeof event]{};
    if (text.empty() || text.size() % 2 != 0 || text.size() / 2 > sizeof bytes) return false;
    for (size_t i = 0; i < text.size() / 2; ++i) {
        if (!parseNumber(text.substr(2 * i, 2), bytes[i], 16)) return false;
    }
    memcpy(&event, bytes, sizeof event);
    return true;
}

}  // namespace

std::string toLine(const LinkMessage& message) {
    std::string argument;
    if (message.kind == Kind::Session) argument = std::to_string(message.sessionId);
    if (message.kind == Kind::Input) argument = toHex(message.input);
    const auto* const word =
        std::find_if(std::begin(kWords), std::end(kWords),
                     [&](const auto& candidate) { return candidate.kind == message.kind; });
    return std::string(word->word) + (argument.empty() ? "" : ' ' + argument);
}

std::optional<LinkMessage> parseLinkLine(std::string_view line) {
    const size_t blank = std::min(line.find(' '), line.size());
    const std::string_view argument = line.substr(std::min(blank + 1, line.size()));
    const auto* const word = std::find_if(
        std::begin(kWords), std::end(kWords),
        [&](const auto& candidate) { return candidate.word == line.substr(0, blank); });
    if (word == std::end(kWords)) return std::nullopt;

    LinkMessage message;
    message.kind = word->kind;
    bool valid = false;
    switch (message.kind) {
        case Kind::Session:
            valid = parseNumber(argument, message.sessionId, 10) && message.sessionId > 0;
            break;
        case Kind::Input:
            valid = parseHex(argument, message.input);
            break;
        default:
            valid = argument.empty();
    }
    return valid ? std::optional(message) : std::nullopt;
}

}  // namespace hostplatform
