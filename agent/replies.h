// Answers to commands that a test script sends and that neither the library nor the agent carries
// out.
#pragma once

#include <map>
#include <string>

namespace agent {

// By the command's name in lower case: the values behind status,COMPLETE, empty for none.
using Replies = std::map<std::string, std::string>;

// Reads a file of replies: a line each, "name" or "name,values"; blank lines and lines that begin
// with '#' are passed over. Throws std::runtime_error, which names the line, when the file cannot
// be read, a line has no name or a name stands there twice.
Replies readReplies(const std::string& path);

}  // namespace agent
