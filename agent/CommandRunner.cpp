#include "CommandRunner.h"

#include <algorithm>
#include <asio/ip/address_v4.hpp>
#include <charconv>
#include <cstdlib>
#include <map>
#include <memory>
#include <string_view>
#include <system_error>

#include "Log.h"
#include "Text.h"

namespace agent {

namespace {

// Asks for the peer's address and port to be discovered.
constexpr int kDiscoverPort = -100;

// A text that the library allocated and leaves to its caller, whatever it returned.
class Response {
 public:
    Response() = default;
    ~Response() { std::free(mText); }
    Response(const Response&) = delete;
    Response& operator=(const Response&) = delete;

    char** address() { return &mText; }
    bool empty() const { return mText == nullptr || *mText == '\0'; }

    // As a value of an answer: it may hold what a stranger chose, and an answer is one line.
    std::string value() const {
        std::string text = empty() ? "" : mText;
        std::replace_if(
            text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; },
            ' ');
        return text;
    }

 private:
    char* mText = nullptr;
};

bool completed(int result) { return result == 0 || result == 1; }

std::string finalLine(int result) {
    if (completed(result)) return "status,COMPLETE";
    if (result == -2) return kInvalid;
    return "status,ERROR,errorCode," + std::to_string(result);
}

std::optional<int> parsePort(const std::string& text) {
    int port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    const bool inRange = port == kDiscoverPort || (port >= 1 && port <= 65535);
    if (error != std::errc() || stop != end || !inRange) return std::nullopt;
    return port;
}

std::optional<int> parseDeviceType(const std::string& text) {
    if (equalsIgnoreCase(text, "source")) return 0;
    if (equalsIgnoreCase(text, "p-sink")) return 1;
    return std::nullopt;
}

std::string refuse(const CapiCommand& command, const char* parameter, const std::string& got,
                   const char* wanted) {
    logLine(command.name() + ": " + parameter + " must be " + wanted + ", got " +
            (got.empty() ? "nothing" : '"' + printable(got) + '"'));
    return kInvalid;
}

std::string preset(SigmaLibrary::AnsweringCommand* function, const CapiCommand& command) {
    Response response;
    const int result = function(command.parameters().c_str(), response.address());
    if (!completed(result) || response.empty()) return finalLine(result);
    return finalLine(result) + ",InstanceName," + response.value();
}

std::string start(SigmaLibrary::StartCommand* function, const CapiCommand& command) {
    const std::string portText = command.parameter("RtspPort");
    const auto port = parsePort(portText);
    if (!port) {
        return refuse(command, "RtspPort", portText, "1 to 65535, or -100 for discovery");
    }

    const std::string address = command.parameter("PeerAddress");
    const bool mayBeAbsent = *port == kDiscoverPort;
    std::error_code error;
    asio::ip::make_address_v4(address, error);
    if (error && !(address.empty() && mayBeAbsent)) {
        return refuse(command, "PeerAddress", address, "an IPv4 address");
    }

    const std::string typeText = command.parameter("PeerDevType");
    const auto type = parseDeviceType(typeText);
    if (!type) return refuse(command, "PeerDevType", typeText, "source or p-sink");

    Response response;
    const int result =
        function(command.parameters().c_str(), address.empty() ? nullptr : address.c_str(), *port,
                 *type, response.address());
    if (!completed(result)) return finalLine(result);
    return finalLine(result) + ",WfdSessionID," + response.value();
}

}  // namespace

CommandRunner::CommandRunner(const SigmaLibrary& library) {
    const auto plain = [](SigmaLibrary::Command* function) {
        return [function](const CapiCommand& command) {
            return finalLine(function(command.parameters().c_str()));
        };
    };
    const auto starting = [](SigmaLibrary::StartCommand* function) {
        return [function](const CapiCommand& command) { return start(function, command); };
    };
    mHandlers = {
        {"sta_reset_default", plain(library.staResetDefault)},
        {"start_wfd_connection", starting(library.startWfdConnection)},
        {"connect_go_start_wfd", starting(library.connectGoStartWfd)},
        {"dev_send_frame", plain(library.devSendFrame)},
        {"dev_exec_action",
         [this, &library](const CapiCommand& command) { return execAction(library, command); }},
        {"sta_generate_event", plain(library.staGenerateEvent)},
        {"ca_get_version",
         [](const CapiCommand&) { return "status,COMPLETE,version," CAPI_AGENT_VERSION; }},
        {"device_get_info",
         [](const CapiCommand&) {
             return "status,COMPLETE,vendor,simulated-device,model,linux-host,version,"  //
                 CAPI_AGENT_VERSION;
         }},
    };
    if (library.staPresetTestparameters != nullptr) {
        mHandlers["sta_preset_testparameters"] = [&library](const CapiCommand& command) {
            return preset(library.staPresetTestparameters, command);
        };
    } else {
        logLine("the library has no sta_preset_testparameters; that command will be INVALID");
    }
}

std::optional<CapiCommand> CommandRunner::accept(const Line& line) const {
    switch (line.kind) {
        case Line::Kind::TooLong:
            logLine("a line of more than " + std::to_string(LineSplitter::kMaxLine) +
                    " bytes is refused");
            return std::nullopt;
        case Line::Kind::HasNul:
            logLine("a line with a NUL byte is refused");
            return std::nullopt;
        case Line::Kind::Text:
            break;
    }
    auto command = CapiCommand::parse(line.text);
    if (!command) {
        logLine("a line without a command name is refused");
    } else if (mHandlers.count(command->name()) == 0) {
        logLine("unknown command \"" + printable(command->name()) + '"');
        command.reset();
    }
    return command;
}

std::string CommandRunner::run(const CapiCommand& command) {
    return mHandlers.at(command.name())(command);
}

std::string CommandRunner::execAction(const SigmaLibrary& library, const CapiCommand& command) {
    mPlayback.joinEnded();
    const int result = library.devExecAction(command.parameters().c_str());
    mPlayback.collect(library.playbackThread);
    return finalLine(result);
}

}  // namespace agent
