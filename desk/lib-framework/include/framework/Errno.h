#pragma once

#include <cstdint>

/** Result code of the framework. Any other nonzero value is a failure without a name. */
using Errno = int32_t;

enum : Errno {
    ERRNO_SUCCESS = 0,
    ERRNO_FAILED = 1,         ///< modem operation failed
    ERRNO_UNSUPPORTED = 2,    ///< unsupported request
    ERRNO_INVALID_PARAM = 3,  ///< invalid parameter or null input
    ERRNO_NOT_CONNECTED = 4,  ///< QMI service not connected, subscription not bound, client absent
    ERRNO_NO_MEMORY = 5,      ///< allocation of a record or message failed
};
