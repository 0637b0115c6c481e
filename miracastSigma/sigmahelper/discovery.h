// What the commands need of the discovery besides the steps that miracast_sigma.h declares.
#pragma once

#include <string>

// A source's RTSP control port, which it registers and names to a sink.
constexpr int kRtspControlPort = 7236;

// The name in instanceName, as it is now. On any thread.
std::string registeredInstanceName();
