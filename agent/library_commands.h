// The commands that take more than handing their parameters to the library and its status back.
// Each returns the command's final status line, and says on standard error what is wrong with its
// parameters. On the command thread.
#pragma once

#include <functional>
#include <string>

#include "agent/CapiCommand.h"
#include "agent/SigmaLibrary.h"

namespace agent {

using CommandHandler = std::function<std::string(const CapiCommand&)>;

// The final line for a status of the library's commands.
std::string statusLine(int result);

// sta_preset_testparameters, with the instance name in the answer.
CommandHandler presetHandler(const SigmaLibrary& library);

// The session-start command of that name, with the session's identifier in the answer.
CommandHandler startHandler(const SigmaLibrary& library, const char* name);

// sta_get_parameter: the running session's identifier, which a sink that was asked to connect has
// no other way to tell.
CommandHandler parameterHandler(const SigmaLibrary& library);

// x_sink_input, this agent's own command: what the sink's user does.
std::string injectSinkInput(const CapiCommand& command);

}  // namespace agent
