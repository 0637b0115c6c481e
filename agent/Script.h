// A script of command lines, as people write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace agent {

// What one line of a script asks for. Blank lines and comments, which begin with '#', ask for
// nothing; these are directives:
//   #expect TEXT   the next command must end with status,TEXT or with status,TEXT,...
//   #settle        wait until the device has done all that the commands so far made it do
//   #wait COMPONENT TEXT
//                  wait for what something else makes the device do: until its journal holds an
//                  entry of COMPONENT that contains TEXT, from the entry on that follows the one
//                  with which the script's last #wait ended, or from the script's start on
struct ScriptLine {
    enum class Kind { Nothing, Command, Expect, Settle, Wait, Wrong };
    Kind kind = Kind::Nothing;
    std::string text;       // Expect, Wait: TEXT; Wrong: what is wrong with the line
    std::string component;  // Wait: COMPONENT

    static ScriptLine parse(std::string_view line);
};

// Whether the final status line `answer` is as expected; without an expectation a command must be
// COMPLETE.
bool isExpected(std::string_view answer, const std::optional<std::string>& expectation);

}  // namespace agent
