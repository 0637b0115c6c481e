#include "Script.h"

#include "Text.h"

namespace agent {

namespace {

bool beginsWith(std::string_view text, std::string_view part) {
    return text.substr(0, part.size()) == part;
}

bool isStatusWord(std::string_view word) {
    return word == "COMPLETE" || word == "ERROR" || word == "INVALID";
}

}  // namespace

ScriptLine ScriptLine::parse(std::string_view line) {
    constexpr std::string_view kExpect = "#expect";
    constexpr std::string_view kSettle = "#settle";
    line = trimmed(line);
    if (line.empty()) return {Kind::Nothing, {}};
    if (line == kSettle) return {Kind::Settle, {}};
    // Whatever merely begins like an expectation is a mistake: passing over it as a comment would
    // let the script succeed without the check.
    if (beginsWith(line, kExpect)) {
        const std::string_view text = trimmed(line.substr(kExpect.size()));
        const bool apart = text.size() + kExpect.size() < line.size();
        if (!apart || !isStatusWord(text.substr(0, text.find(',')))) {
            return {Kind::Wrong, "an expectation begins with COMPLETE, ERROR or INVALID, got \"" +
                                     printable(line) + '"'};
        }
        return {Kind::Expect, std::string(text)};
    }
    return {line.front() == '#' ? Kind::Nothing : Kind::Command, {}};
}

bool isExpected(std::string_view answer, const std::optional<std::string>& expectation) {
    const std::string wanted = "status," + expectation.value_or("COMPLETE");
    return answer == wanted || beginsWith(answer, wanted + ',');
}

}  // namespace agent
