#include "agent/library_commands.h"

#include <arpa/inet.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <system_error>

#include "agent/Log.h"
#include "agent/Text.h"
#include "agent/status.h"
#include "host/SimulatedDevice.h"

namespace agent {

namespace {

// The library discovers the peer's address and port.
constexpr int kDiscoverPort = -100;

constexpr int kSource = 0;
constexpr int kPrimarySink = 1;

using Word = std::atomic<std::int32_t>;

// A text that the library allocated and left to its caller, as a value of an answer, which is one
// line: a name may hold what somebody else chose.
std::string takeText(char* response) {
    const std::unique_ptr<char, decltype(&std::free)> owned(response, std::free);
    std::string text = response == nullptr ? "" : response;
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return text;
}

bool isComplete(int result) { return result == 0 || result == 1; }

template <typename Number>
std::optional<Number> parseNumber(const std::string& text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<int> parseDeviceType(const std::string& text) {
    const std::string type = lowerCase(text);
    if (type == "source") return kSource;
    if (type == "p-sink" || type == "sink") return kPrimarySink;
    return std::nullopt;
}

std::string refuse(const CapiCommand& command, const char* parameter, const char* wanted) {
    const std::string got = command.parameter(lowerCase(parameter));
    logLine(command.name() + ": " + parameter + " must be " + wanted + ", got " +
            (got.empty() ? "nothing" : '"' + printable(got) + '"'));
    return kInvalid;
}

}  // namespace

std::string statusLine(int result) {
    if (isComplete(result)) return complete();
    return result == -2 ? kInvalid : "status,ERROR,errorCode," + std::to_string(result);
}

CommandHandler presetHandler(const SigmaLibrary& library) {
    auto* const preset =
        library.symbol<int(const char*, char** response)>("sta_preset_testparameters");
    auto* const deviceType = library.symbol<Word>("wfd_device_type");
    return [=](const CapiCommand& command) {
        // Once this sink is registered, a source can ask it for a session at any time. The library
        // learns its role from a start command only, and no sink that is asked gets one.
        if (parseDeviceType(command.parameter("wfddevtype")) == kPrimarySink) {
            *deviceType = kPrimarySink;
            logLine("this device is a primary sink from now on");
        }
        char* response = nullptr;
        const int result = preset(command.parameters().c_str(), &response);
        const bool registering = response != nullptr;
        const std::string name = takeText(response);
        if (!isComplete(result) || !registering) return statusLine(result);
        if (!name.empty()) return complete("InstanceName," + name);
        logLine(command.name() +
                ": no mDNS daemon has registered this device, so the answer has no " +
                "InstanceName");
        return complete();
    };
}

CommandHandler startHandler(const SigmaLibrary& library, const char* name) {
    auto* const start = library.symbol<int(const char* text, const char* peerAddress, int port,
                                           int peerDeviceType, char** response)>(name);
    const auto* const defaultPort = library.symbol<std::int32_t>("session_management_control_port");
    return [=](const CapiCommand& command) {
        const std::string portText = command.parameter("rtspport");
        const auto port = portText.empty() ? *defaultPort : parseNumber<std::int32_t>(portText);
        if (!port || ((*port < 1 || *port > 65535) && *port != kDiscoverPort)) {
            return refuse(command, "RtspPort", "1 to 65535, or -100 for discovery");
        }
        const std::string address = command.parameter("peeraddress");
        in_addr parsed{};
        const bool mayBeAbsent = *port == kDiscoverPort;
        if (!(address.empty() && mayBeAbsent) &&
            inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
            return refuse(command, "PeerAddress", "an IPv4 address");
        }
        const auto type = parseDeviceType(command.parameter("peerdevtype"));
        if (!type) return refuse(command, "PeerDevType", "source, sink or p-sink");

        char* response = nullptr;
        const int result =
            start(command.parameters().c_str(), address.empty() ? nullptr : address.c_str(), *port,
                  *type, &response);
        const std::string sessionId = takeText(response);
        return isComplete(result) ? complete("WfdSessionID," + sessionId) : statusLine(result);
    };
}

CommandHandler parameterHandler(const SigmaLibrary& library) {
    const auto* const sessionId = library.symbol<Word>("g_wfd_session_id");
    const char* const text = library.symbol<char>("wfdSessionId");
    return [=](const CapiCommand& command) -> std::string {
        const std::string name = command.parameter("parameter");
        if (lowerCase(name) != "wfdsessionid" && lowerCase(name) != "sessionid") {
            return refuse(command, "Parameter", "WfdSessionID or SessionId");
        }
        // The library writes the text before it sets the number.
        if (*sessionId != 0) return complete(name + ',' + text);
        logLine(command.name() + ": there is no session");
        return kError;
    };
}

std::string injectSinkInput(const CapiCommand& command) {
    const std::string kind = lowerCase(command.parameter("kind"));
    const std::string actionText = lowerCase(command.parameter("action"));
    const bool isKey = kind == "key";
    if (!isKey && kind != "touch") return refuse(command, "kind", "key or touch");
    const std::uint32_t action = actionText == "down" ? 0 : actionText == "up" ? 1 : 2;
    if (action == 2 && (isKey || actionText != "move")) {
        return refuse(command, "action", isKey ? "down or up" : "down, up or move");
    }
    WFD_uibc_event_t event = hostplatform::touchEvent(action);
    if (isKey) {
        const std::string text = command.parameter("code");
        auto code = parseNumber<std::uint16_t>(text);
        if (!code && text.size() == 1 && text[0] > ' ' && text[0] < 0x7f) {
            code = static_cast<std::uint16_t>(text[0]);
        }
        if (!code) return refuse(command, "code", "0 to 65535, or a character that is no digit");
        event = hostplatform::keyEvent(*code, action);
    }
    return statusLine(hostplatform::device().session().injectInput(event) ? 0 : -1);
}

}  // namespace agent
