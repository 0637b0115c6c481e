#include "agent/CommandRunner.h"

#include <cstdio>
#include <stdexcept>
#include <utility>

#include "agent/Log.h"
#include "agent/Text.h"
#include "agent/host_interface.h"
#include "agent/library_commands.h"
#include "agent/status.h"
#include "host/SimulatedDevice.h"

namespace agent {

CommandRunner::CommandRunner(const SigmaLibrary& library, const Replies& replies, bool trace)
    : mPlaybackWord(library.symbol<pthread_t>("rtsp_playback_thread")), mTraced(trace) {
    const auto plain = [&library](const char* name) -> CommandHandler {
        auto* const function = library.symbol<int(const char*)>(name);
        return [function](const CapiCommand& command) {
            return statusLine(function(command.parameters().c_str()));
        };
    };
    for (const char* const name :
         {"sta_reset_default", "dev_send_frame", "dev_exec_action", "sta_generate_event"}) {
        mHandlers[name] = plain(name);
    }
    for (const char* const name : {"start_wfd_connection", "connect_go_start_wfd"}) {
        mHandlers[name] = startHandler(library, name);
    }
    mHandlers["sta_preset_testparameters"] = presetHandler(library);
    for (const auto& [name, values] : replies) {
        if (mHandlers.count(name) != 0) {
            throw std::runtime_error("there is a reply to " + name +
                                     ", which the library carries out");
        }
        mHandlers[name] = [values = values](const CapiCommand&) { return complete(values); };
    }
    const auto connected =
        [id = library.symbol<std::atomic<std::int32_t>>("g_wfd_session_id")](const CapiCommand&) {
            return complete(*id != 0 ? "connected,1" : "connected,0");
        };
    const auto constant = [](const char* values) {
        return [values](const CapiCommand&) { return complete(values); };
    };
    // insert: a reply in the file takes the place of an answer of the agent's own.
    mHandlers.insert({
        {"ca_get_version", constant("version," CAPI_AGENT_VERSION)},
        {"device_get_info",
         constant("vendor,simulated-device,model,linux-host,version," CAPI_AGENT_VERSION)},
        {"device_list_interfaces", constant("interfaceType,802.11,interfaceID,wlan0")},
        {"sta_get_ip_config", getIpConfig},
        {"sta_get_mac_address", getMacAddress},
        {"sta_is_connected", connected},
        {"sta_verify_ip_connection", connected},
        {"sta_get_parameter", parameterHandler(library)},
        {"x_sink_input", injectSinkInput},
    });
}

CommandRunner::~CommandRunner() {
    if (mPlayback != 0) pthread_join(mPlayback, nullptr);
    if (mTraced) printTrace();
}

std::string CommandRunner::run(const Line& line, bool echo) {
    if (mTraced) printTrace();  // what an earlier command caused late stands under that command
    const auto tell = [echo = echo || mTraced](const std::string& text) {
        hostplatform::device().journal().add("capi", text);
        if (echo) std::puts(text.c_str());
    };
    tell(line.fault == nullptr ? printable(trimmed(line.text), 1000)
                               : std::string("(refused: ") + line.fault + ')');
    tell(kRunning);
    std::string answer = kInvalid;
    if (line.fault == nullptr) {
        answer = carryOut(CapiCommand(line.text));
    } else {
        logLine(std::string("a line is refused: ") + line.fault);
    }
    tell(answer);
    return answer;
}

std::string CommandRunner::carryOut(const CapiCommand& command) {
    const auto handler = mHandlers.find(command.name());
    if (handler != mHandlers.end()) {
        mInProgress = handler->first.c_str();
        std::string answer = handler->second(command);
        mInProgress = nullptr;
        takePlaybackThread();
        return answer;
    }
    if (command.name().empty()) {
        logLine("a line without a command's name is refused");
    } else if (mUnknown.insert(command.name()).second) {
        logLine("unknown command \"" + printable(command.name()) +
                "\"; if the test can do without it, put its reply into a file for --replies " +
                "(examples/replies.txt shows how)");
    }
    return kInvalid;
}

// dev_exec_action leaves a joinable thread with each start. The last one is joined at the end, an
// earlier one is let go.
void CommandRunner::takePlaybackThread() {
    const pthread_t started = std::exchange(*mPlaybackWord, 0);
    if (started == 0) return;
    if (mPlayback != 0) pthread_detach(mPlayback);
    mPlayback = started;
}

void CommandRunner::traceDevice() {
    if (!mTraced) return;
    waitDeviceAtRest(std::chrono::seconds(2));
    printTrace();
}

void CommandRunner::printTrace() {
    for (const auto& entry : hostplatform::device().journal().entries(mTraceFrom)) {
        mTraceFrom = entry.sequence + 1;
        const std::string& component = entry.component;
        if (component == "log" || component == "capi" || component == "script") continue;
        std::printf("    %-10s %s\n", component.c_str(), printable(entry.text, 1000).c_str());
    }
}

bool CommandRunner::waitDeviceAtRest(std::chrono::milliseconds timeout) {
    // Workers of the library are not reports: what they still do shows only in the journal.
    constexpr std::chrono::milliseconds kQuiet{80};
    return hostplatform::device().session().waitReported(timeout) &&
           hostplatform::device().journal().waitQuiet(kQuiet, timeout);
}

}  // namespace agent
