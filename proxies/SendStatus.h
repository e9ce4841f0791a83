#pragma once

#include <new>

#include <framework/Errno.h>
#include <hidl/Status.h>

#include "params/ModemLog.h"

/**
 * Makes one call to a callback and logs how it went.
 *
 * @param func name of the function that sends
 * @param call converts the arguments, calls, and returns the transport status
 * @return 0, or 1 when the transport reported an exception or there was no memory to convert
 */
template <class Call>
int sendStatus(const char* func, Call call) {
    try {
        const android::hardware::Return<void> status = call();
        if (status.isOk()) {
            LOG_I("%s: succeed", func);
            return ERRNO_SUCCESS;
        }
        LOG_E("%s: exception = %s", func, status.description().c_str());
    } catch (const std::bad_alloc&) {
        LOG_E("%s: exception = %s", func, "no memory for the arguments");
    }
    return ERRNO_FAILED;
}
