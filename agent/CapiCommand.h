// One command line of the Sigma control interface: name,parameter,value,parameter,value,...
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace agent {

class CapiCommand {
 public:
    // Blanks around the name and at the line's end are not part of the command; controllers leave
    // them there. Nothing when the line has no name.
    static std::optional<CapiCommand> parse(std::string_view line);

    // In lower case: names ignore case.
    const std::string& name() const { return mName; }

    // Everything after the first comma, as it came.
    const std::string& parameters() const { return mParameters; }

    // The value of the first parameter with that name, in any case, without the blanks around it;
    // empty when there is none. Reads strict pairs, so a value that happens to be another
    // parameter's name is not taken for one.
    std::string parameter(std::string_view name) const;

 private:
    CapiCommand() = default;

    std::string mName;
    std::string mParameters;
};

}  // namespace agent
