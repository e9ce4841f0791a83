#pragma once

#include <cerrno>
#include <cstdint>
#include <limits>

namespace android {

using status_t = int32_t;

/** Errors are negative errno values, or these. */
enum : status_t {
    OK = 0,
    UNKNOWN_ERROR = std::numeric_limits<status_t>::min(),
    FAILED_TRANSACTION = UNKNOWN_ERROR + 2,
    BAD_VALUE = -EINVAL,
    ALREADY_EXISTS = -EEXIST,
    PERMISSION_DENIED = -EPERM,
    DEAD_OBJECT = -EPIPE,
};

}  // namespace android
