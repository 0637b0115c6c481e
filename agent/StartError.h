// Why the agent cannot start.
#pragma once

#include <stdexcept>

namespace agent {

// Its text is one clear line; it ends the program with status 2.
class StartError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

}  // namespace agent
