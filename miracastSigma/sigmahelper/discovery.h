// The discovery steps of the test commands: they call the functions of wfd_discovery.h, which work
// on the process's WFDmDns. miracast_sigma.h declares the exported steps, this header the rest.
#pragma once

// The RTSP control port that a source registers and tells a sink.
constexpr int kRtspControlPort = 7236;

// Copies the current instanceName. Any thread may call.
void copyInstanceName(char (&name)[64]);
