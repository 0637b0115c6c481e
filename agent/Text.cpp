#include "agent/Text.h"

#include <cstdio>

namespace agent {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const auto begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::string lowerCase(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return result;
}

std::string printable(std::string_view text, std::string_view::size_type limit) {
    std::string result;
    for (const char c : text.substr(0, limit)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            result += c;
            continue;
        }
        char escaped[5];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
        result += escaped;
    }
    if (text.size() > limit) result += "...";
    return result;
}

}  // namespace agent
