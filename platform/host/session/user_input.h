// Input events of a sink's user, and their text form. Any thread may call.
#pragma once

#include <cstdint>
#include <string>

#include "wfd/WiFiDisplayClient.h"

namespace hostplatform {

// `action`: 0 down, 1 up; for a touch any other number means move.
WFD_uibc_event_t keyEvent(uint16_t keysym, uint32_t action);
WFD_uibc_event_t touchEvent(uint32_t action);

// Returns the bytes of the event in hexadecimal, without the zeros at its end.
std::string toHex(const WFD_uibc_event_t& event);
// Fills `event`, which must be all zeros. Returns false if the text is no event.
bool parseHex(const std::string& text, WFD_uibc_event_t& event);

}  // namespace hostplatform
