// Reads parameters out of command texts.
#include <cstring>

#include "miracast_sigma.h"
#include "sigma_log.h"

namespace {

constexpr size_t kLongestValue = 511;

}  // namespace

int get_param(const char* command, const char* name, char* value, int size) noexcept {
    const char* const match =
        command == nullptr || name == nullptr ? nullptr : strcasestr(command, name);
    if (match == nullptr) {
        SIGMA_LOG("String token not found");
        return MIRACAST_ERROR;
    }
    SIGMA_LOG("vestor: DBG: strstr output %s", match);

    const char* text = match + strlen(name);
    if (*text != '\0') ++text;  // skip the separator, unless the text ends here
    const size_t length = strcspn(text, ",");
    const size_t room = value == nullptr || size < 0 ? 0 : static_cast<size_t>(size);
    if (length < room && length <= kLongestValue) {
        memcpy(value, text, length);
        value[length] = '\0';
    }
    SIGMA_LOG("Output calculated = %.*s", static_cast<int>(room == 0 ? 0 : strnlen(value, room)),
              room == 0 ? "" : value);
    return MIRACAST_COMPLETED;
}
