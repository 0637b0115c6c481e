#include "agent/replies.h"

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "agent/CapiCommand.h"
#include "agent/Text.h"

namespace agent {

Replies readReplies(const std::string& path) {
    std::ifstream file(path);
    Replies replies;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (trimmed(line).empty() || trimmed(line).front() == '#') continue;
        const CapiCommand command(line);
        const std::string place = path + ":" + std::to_string(number) + ": ";
        if (command.name().empty())
            throw std::runtime_error(place + "a reply begins with a command's name");
        if (!replies.emplace(command.name(), command.parameters()).second) {
            throw std::runtime_error(place + "a second reply to " + command.name());
        }
    }
    // A file that could not be opened fails at its first line, a directory as well.
    if (!file.eof()) {
        throw std::runtime_error("cannot read the replies " + path + ": " +
                                 std::generic_category().message(errno));
    }
    return replies;
}

}  // namespace agent
