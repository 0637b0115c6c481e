#pragma once

#include <cerrno>
#include <cstdint>

namespace android {

// 0 for success, a negative error number otherwise.
typedef int32_t status_t;

enum : status_t {
    OK = 0,
    NO_ERROR = OK,
    UNKNOWN_ERROR = INT32_MIN,
    NO_MEMORY = -ENOMEM,
    NO_INIT = -ENODEV,
    BAD_VALUE = -EINVAL,
    NAME_NOT_FOUND = -ENOENT,
};

}  // namespace android
