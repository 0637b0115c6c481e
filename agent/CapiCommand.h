// One command line of the Sigma control interface: name,parameter,value,parameter,value,...
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace agent {

// Blanks around the tokens of a line are not part of the command; controllers leave them there.
class CapiCommand {
 public:
    // A line without its end. A line without a name gives a command with an empty one.
    explicit CapiCommand(std::string_view line);

    // In lower case: names ignore case.
    const std::string& name() const { return mName; }

    // Everything after the name, as the library's functions take it: tokens without blanks,
    // separated by commas.
    std::string parameters() const;

    // The value of the first parameter whose name in lower case is `name`; empty when there is
    // none. Reads strict pairs, so a value that is also the name of a parameter is not taken for
    // one.
    std::string parameter(std::string_view name) const;

 private:
    std::vector<std::string> mTokens;  // the name, then names and values of parameters
    std::string mName;
};

}  // namespace agent
