#include "host/session/user_input.h"

#include <cstdio>
#include <cstring>

#include "host/text_format.h"

namespace hostplatform {

WFD_uibc_event_t keyEvent(uint16_t keysym, uint32_t action) {
    WFD_uibc_event_t event = touchEvent(action);
    event.type = 1;
    memcpy(event.params + sizeof action, &keysym, sizeof keysym);
    return event;
}

WFD_uibc_event_t touchEvent(uint32_t action) {
    WFD_uibc_event_t event{};
    memcpy(event.params, &action, sizeof action);
    return event;
}

std::string toHex(const WFD_uibc_event_t& event) {
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&event);
    size_t size = sizeof event;
    while (size > 1 && bytes[size - 1] == 0) --size;
    std::string text;
    for (size_t i = 0; i < size; ++i) text += format("%02x", bytes[i]);
    return text;
}

bool parseHex(const std::string& text, WFD_uibc_event_t& event) {
    auto* const bytes = reinterpret_cast<uint8_t*>(&event);
    if (text.empty() || text.size() % 2 != 0 || text.size() > 2 * sizeof event) return false;
    for (size_t i = 0; i < text.size(); i += 2) {
        if (sscanf(text.c_str() + i, "%2hhx", bytes + i / 2) != 1) return false;
    }
    return true;
}

}  // namespace hostplatform
