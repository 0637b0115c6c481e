#include "Script.h"

#include "Text.h"

namespace agent {

namespace {

bool beginsWith(std::string_view text, std::string_view part) {
    return text.substr(0, part.size()) == part;
}

// What follows the directive `name`, which must be set apart from it by a blank; else nothing.
std::string_view argumentOf(std::string_view name, std::string_view line) {
    const std::string_view rest = line.substr(name.size());
    const std::string_view argument = trimmed(rest);
    return argument.size() < rest.size() ? argument : std::string_view();
}

bool isStatusWord(std::string_view word) {
    return word == "COMPLETE" || word == "ERROR" || word == "INVALID";
}

ScriptLine wrong(const char* rule, std::string_view line) {
    return {ScriptLine::Kind::Wrong, std::string(rule) + ", got \"" + printable(line) + '"', {}};
}

}  // namespace

ScriptLine ScriptLine::parse(std::string_view line) {
    constexpr std::string_view kExpect = "#expect";
    constexpr std::string_view kSettle = "#settle";
    constexpr std::string_view kWait = "#wait";
    line = trimmed(line);
    if (line.empty()) return {};
    if (line == kSettle) return {Kind::Settle, {}, {}};
    // Whatever merely begins like a check is a mistake: passing over it as a comment would let the
    // script succeed without the check.
    if (beginsWith(line, kExpect)) {
        const std::string_view text = argumentOf(kExpect, line);
        if (!isStatusWord(text.substr(0, text.find(',')))) {
            return wrong("an expectation begins with COMPLETE, ERROR or INVALID", line);
        }
        return {Kind::Expect, std::string(text), {}};
    }
    if (beginsWith(line, kWait)) {
        const std::string_view argument = argumentOf(kWait, line);
        const std::string_view component = argument.substr(0, argument.find_first_of(" \t"));
        const std::string_view text = trimmed(argument.substr(component.size()));
        if (text.empty()) return wrong("a wait names a component and a text", line);
        return {Kind::Wait, std::string(text), std::string(component)};
    }
    return {line.front() == '#' ? Kind::Nothing : Kind::Command, {}, {}};
}

bool isExpected(std::string_view answer, const std::optional<std::string>& expectation) {
    const std::string wanted = "status," + expectation.value_or("COMPLETE");
    return answer == wanted || beginsWith(answer, wanted + ',');
}

}  // namespace agent
