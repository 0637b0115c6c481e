#include "cutils/properties.h"

#include <algorithm>
#include <cstring>

#include "host/SimulatedDevice.h"

using hostplatform::device;

int property_get(const char* key, char* value, const char* default_value) {
    std::string text = device().properties().get(key);
    if (text.empty() && default_value != nullptr) text = default_value;
    const size_t length = std::min(text.size(), size_t{PROPERTY_VALUE_MAX - 1});
    memcpy(value, text.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}

int property_set(const char* key, const char* value) {
    return device().properties().set(key, value == nullptr ? "" : value);
}
