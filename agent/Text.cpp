#include "Text.h"

#include <algorithm>

namespace agent {

namespace {

constexpr std::string_view kBlanks = " \t\r";

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

std::string_view trimmedRight(std::string_view text) {
    // npos + 1 is 0: nothing but blanks leaves nothing.
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::string_view trimmed(std::string_view text) {
    text = trimmedRight(text);
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text;
}

std::string lowerCase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), lower);
    return result;
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

std::string printable(std::string_view text, std::string_view::size_type limit) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string result;
    for (const char c : text.substr(0, limit)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            result += "\\x";
            result += kDigits[byte >> 4];
            result += kDigits[byte & 15];
        } else {
            result += c;
        }
    }
    if (text.size() > limit) result += "...";
    return result;
}

}  // namespace agent
