#include "Options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <map>
#include <string_view>
#include <system_error>

namespace agent {

namespace {

using asio::ip::tcp;

// [ADDR:]PORT, an IPv6 address in brackets.
std::optional<tcp::endpoint> parseEndpoint(std::string_view text) {
    asio::ip::address address = asio::ip::address_v4::loopback();
    const auto colon = text.rfind(':');
    if (colon != std::string_view::npos) {
        std::string_view host = text.substr(0, colon);
        const bool bracketed = host.size() >= 2 && host.front() == '[' && host.back() == ']';
        if (bracketed) host = host.substr(1, host.size() - 2);
        std::error_code error;
        address = asio::ip::make_address(host, error);
        if (error || address.is_v6() != bracketed) return std::nullopt;
        text.remove_prefix(colon + 1);
    }
    unsigned short port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return tcp::endpoint(address, port);
}

}  // namespace

std::optional<int> Options::parse(int argc, const char* const* argv) {
    using hostplatform::Peer;
    static const std::map<std::string, Peer> kPeers = {{"answers", Peer::Answers},
                                                       {"silent", Peer::Silent},
                                                       {"refuses", Peer::Refuses},
                                                       {"late", Peer::Late},
                                                       {"linked", Peer::Linked}};

    CLI::App app(
        "Takes Wi-Fi Display test commands (CAPI lines) from scripts and from a controller over\n"
        "TCP, and has libmiracastSigma.so carry them out on a simulated device.\n"
        "Without FILE and --listen it reads commands from standard input.",
        "capi-agent");
    std::string listenText;
    int waitSeconds = static_cast<int>(waitLimit.count());
    app.add_option("FILE", scripts, "Scripts to run, one after the other; - is standard input")
        ->type_name("");
    app.add_option("--listen", listenText,
                   "Serve a controller on this address (default 127.0.0.1) and port (0: any); goes "
                   "on after the scripts")
        ->type_name("[ADDR:]PORT")
        ->check([this](const std::string& text) {
            listen = parseEndpoint(text);
            return listen ? std::string() : "not [ADDR:]PORT: " + text;
        });
    app.add_option("--wait-limit", waitSeconds,
                   "How many seconds a script waits at most for what its #wait asks for (60)")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 3600).description(""));
    app.add_option("--library", library,
                   "The library (default: beside the program or in ../lib from there)")
        ->type_name("PATH");
    app.add_option("--journal", journal,
                   "Write commands, answers and what the simulated device is made to do to a file")
        ->type_name("FILE");
    app.add_flag("--trace", trace, "Print, under each command, what it made the device do");
    app.add_option("--time-scale", timeScale, "Device time passes this many times as fast")
        ->type_name("FACTOR");
    app.add_option(
           "--peer", peer,
           "What the simulated peer does: answers, silent, refuses or late; linked: the peer is "
           "the device of another agent, over TCP")
        ->type_name("PEER")
        ->transform(CLI::CheckedTransformer(kPeers, CLI::ignore_case).description(""));
    app.set_version_flag("--version", "capi-agent " CAPI_AGENT_VERSION);

    try {
        app.parse(argc, argv);
        if (!std::isfinite(timeScale) || timeScale <= 0) {
            throw CLI::ValidationError("--time-scale", "must be a number above 0");
        }
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    waitLimit = std::chrono::seconds(waitSeconds);
    if (scripts.empty() && !listen) scripts.push_back("-");
    return std::nullopt;
}

}  // namespace agent
