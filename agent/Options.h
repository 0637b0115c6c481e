// The program's arguments.
#pragma once

#include <asio/ip/tcp.hpp>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "host/SimulatedDevice.h"

namespace agent {

struct Options {
    std::vector<std::string> scripts;  // "-": standard input, also when nothing else is asked for
    std::optional<asio::ip::tcp::endpoint> listen;
    std::string replies;  // these five are files; empty: none
    std::string log;
    std::string journal;
    std::string report;
    std::string library;  // empty: the one beside the program
    bool trace = false;
    double timeScale = 1;
    std::chrono::seconds waitLimit{60};
    hostplatform::Peer peer = hostplatform::Peer::Answers;

    // Fills `*this` from the arguments of main. Returns the program's exit status when there is
    // nothing more to do (2 for a usage error, 0 for --help and --version, both printed), else
    // nothing.
    std::optional<int> parse(int argc, const char* const* argv);
};

}  // namespace agent
