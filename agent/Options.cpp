#include "agent/Options.h"

#include <CLI/CLI.hpp>
#include <asio/io_context.hpp>
#include <cmath>
#include <map>
#include <string_view>
#include <system_error>

namespace agent {

namespace {

using asio::ip::tcp;
using hostplatform::Peer;

// [HOST:]PORT, an IPv6 address in brackets. Throws CLI::ValidationError.
tcp::endpoint parseEndpoint(std::string_view text) {
    const auto colon = text.rfind(':');
    std::string host(colon == std::string_view::npos ? "127.0.0.1" : text.substr(0, colon));
    const std::string port(text.substr(colon + 1));  // npos + 1 is 0
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string::npos) {
        host.clear();
    }
    asio::io_context context;
    std::error_code error;
    const auto found = tcp::resolver(context).resolve(
        host, port, tcp::resolver::passive | tcp::resolver::numeric_service, error);
    if (host.empty() || port.empty() || error || found.empty()) {
        throw CLI::ValidationError("--listen", "not [HOST:]PORT: " + std::string(text));
    }
    return *found.begin();
}

}  // namespace

std::optional<int> Options::parse(int argc, const char* const* argv) {
    const std::map<std::string, Peer> peers = {{"answers", Peer::Answers},
                                               {"silent", Peer::Silent},
                                               {"refuses", Peer::Refuses},
                                               {"late", Peer::Late},
                                               {"linked", Peer::Linked}};
    std::string listenText;
    std::string peerName = "answers";
    int waitSeconds = static_cast<int>(waitLimit.count());

    CLI::App app(
        "Takes Wi-Fi Display test commands (CAPI lines) from scripts and from a controller over\n"
        "TCP, and has libmiracastSigma.so carry them out on a simulated device.\n"
        "Without FILE and --listen it reads commands from standard input.",
        "capi-agent");
    app.option_defaults()->always_capture_default();
    app.add_option("FILE", scripts, "Scripts to run, one after the other; - is standard input")
        ->type_name("");
    app.add_option("--listen", listenText,
                   "Serve a test controller on this port (0: any) of this host or address, without "
                   "one of 127.0.0.1; after the scripts")
        ->type_name("[HOST:]PORT");
    app.add_option(
           "--replies", replies,
           "Answer commands that the library does not carry out from this file, a line each: "
           "NAME[,VALUES]")
        ->type_name("FILE");
    app.add_option("--journal", journal,
                   "Write commands, answers and what the simulated device is made to do to a file")
        ->type_name("FILE");
    app.add_option(
           "--log", log,
           "Write the device's log to a file, in logcat's form; what ANDROID_LOG_TAGS shows, "
           "if it is set. Without --log that goes to standard error")
        ->type_name("FILE");
    app.add_option("--report", report,
                   "Write a picture of the run to this file, a page for a browser: at the end, on "
                   "SIGUSR1, and when a controller connects")
        ->type_name("FILE");
    app.add_flag("--trace", trace,
                 "Print, under each command, what it made the device do. Waits for that up to 2 "
                 "seconds of real time before the next command, which changes the timing of a test "
                 "with --listen");
    app.add_option("--time-scale", timeScale, "Device time passes this many times as fast")
        ->type_name("FACTOR");
    app.add_option("--peer", peerName,
                   "What the simulated peer does; linked: the peer is the device of another agent, "
                   "over TCP")
        ->type_name("PEER")
        ->transform(CLI::IsMember(&peers, CLI::ignore_case));
    app.add_option("--wait-limit", waitSeconds, "How long a script's #wait waits at most")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 3600));
    app.add_option("--library", library,
                   "The library, if not the one beside the program or in ../lib from there")
        ->type_name("PATH");
    app.set_version_flag("--version", "capi-agent " CAPI_AGENT_VERSION);

    try {
        app.parse(argc, argv);
        if (!std::isfinite(timeScale) || timeScale <= 0) {
            throw CLI::ValidationError("--time-scale", "must be a number above 0");
        }
        if (!listenText.empty()) listen = parseEndpoint(listenText);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    peer = peers.at(peerName);
    waitLimit = std::chrono::seconds(waitSeconds);
    if (scripts.empty() && !listen) scripts.push_back("-");
    return std::nullopt;
}

}  // namespace agent
