// The lines that two simulated devices send each other over a session link: a word, for some of
// them followed by a blank and an argument, ASCII, ended by LF.
//
//     wfd-sink-1           the sink's first line; no other line makes a session
//     session 10000001     the source's answer: the identifier of the session
//     pause  play  standby  teardown
//     input 0100...        the sink's user: a WFD_uibc_event_t in hexadecimal, byte by byte as it
//                          lies in memory, without the zeros at its end
//
// All functions are pure and callable on any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "wfd/WiFiDisplayClient.h"

namespace hostplatform {

struct LinkMessage {
    enum class Kind { Sink, Session, Pause, Play, Standby, Teardown, Input };
    Kind kind = Kind::Sink;
    int sessionId = 0;         // of Session, above 0
    WFD_uibc_event_t input{};  // of Input
};

// No line of a message is longer, its end included.
constexpr std::size_t kMaxLinkLine = 512;

// Without the line's end.
std::string toLine(const LinkMessage& message);

// The message of a line without its end; nothing when it is none.
std::optional<LinkMessage> parseLinkLine(std::string_view line);

}  // namespace hostplatform
