// Small text helpers. All are pure and callable on any thread.
#pragma once

#include <string>
#include <string_view>

namespace agent {

// `text` without the blanks (space, tab, CR) around it.
std::string_view trimmed(std::string_view text);

// ASCII letters only, whatever the locale is.
std::string lowerCase(std::string_view text);

// `text` fit for a log or a terminal: control characters become \xNN, and of a text longer than
// `limit` bytes only the beginning is shown, followed by "...".
std::string printable(std::string_view text, std::string_view::size_type limit = 200);

}  // namespace agent
