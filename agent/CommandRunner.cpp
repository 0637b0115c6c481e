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
#include "SessionService.h"
#include "Text.h"

namespace agent {

namespace {

// Asks for the peer's address and port to be discovered.
constexpr int kDiscoverPort = -100;

constexpr int kSource = 0;
constexpr int kPrimarySink = 1;

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

std::optional<uint32_t> parseAction(const std::string& text) {
    if (equalsIgnoreCase(text, "down")) return 0;
    if (equalsIgnoreCase(text, "up")) return 1;
    if (equalsIgnoreCase(text, "move")) return 2;
    return std::nullopt;
}

// The code of a character: a number, or the character itself if it is no digit.
std::optional<uint16_t> parseCode(const std::string& text) {
    uint16_t code = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, code);
    if (error == std::errc() && stop == end) return code;
    const bool isCharacter = text.size() == 1 && text[0] > ' ' && text[0] < 0x7f;
    return isCharacter ? std::optional(static_cast<uint16_t>(text[0])) : std::nullopt;
}

std::optional<int> parseDeviceType(const std::string& text) {
    if (equalsIgnoreCase(text, "source")) return kSource;
    if (equalsIgnoreCase(text, "p-sink")) return kPrimarySink;
    return std::nullopt;
}

std::string refuse(const CapiCommand& command, const char* parameter, const std::string& got,
                   const char* wanted) {
    logLine(command.name() + ": " + parameter + " must be " + wanted + ", got " +
            (got.empty() ? "nothing" : '"' + printable(got) + '"'));
    return kInvalid;
}

std::string preset(const SigmaLibrary& library, const CapiCommand& command) {
    // Once this sink is registered, a source can ask it for a session at any time. The library
    // learns its role from a start command only, and there is none on a sink that is asked.
    if (parseDeviceType(command.parameter("wfddevtype")) == kPrimarySink) {
        *library.deviceType = kPrimarySink;
        logLine("this device is a primary sink from now on");
    }
    Response response;
    const int result =
        library.staPresetTestparameters(command.parameters().c_str(), response.address());
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

// Input of the sink's user.
std::string sinkInput(const CapiCommand& command) {
    const std::string kind = command.parameter("kind");
    const bool isKey = equalsIgnoreCase(kind, "key");
    if (!isKey && !equalsIgnoreCase(kind, "touch")) {
        return refuse(command, "kind", kind, "key or touch");
    }
    const std::string actionText = command.parameter("action");
    const auto action = parseAction(actionText);
    if (!action || (isKey && *action > 1)) {
        return refuse(command, "action", actionText, isKey ? "down or up" : "down, up or move");
    }
    WFD_uibc_event_t event = hostplatform::touchEvent(*action);
    if (isKey) {
        const std::string codeText = command.parameter("code");
        const auto code = parseCode(codeText);
        if (!code) {
            return refuse(command, "code", codeText, "0 to 65535, or a character that is no digit");
        }
        event = hostplatform::keyEvent(*code, *action);
    }
    return finalLine(hostplatform::injectInput(event) ? 0 : -1);
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
        {"sta_preset_testparameters",
         [&library](const CapiCommand& command) { return preset(library, command); }},
        {"start_wfd_connection", starting(library.startWfdConnection)},
        {"connect_go_start_wfd", starting(library.connectGoStartWfd)},
        {"dev_send_frame", plain(library.devSendFrame)},
        {"dev_exec_action",
         [this, &library](const CapiCommand& command) { return execAction(library, command); }},
        {"sta_generate_event", plain(library.staGenerateEvent)},
        {"x_sink_input", sinkInput},
        {"ca_get_version",
         [](const CapiCommand&) { return "status,COMPLETE,version," CAPI_AGENT_VERSION; }},
        {"device_get_info",
         [](const CapiCommand&) {
             return "status,COMPLETE,vendor,simulated-device,model,linux-host,version,"  //
                 CAPI_AGENT_VERSION;
         }},
    };
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
