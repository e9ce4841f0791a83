#include "proxies/SendStatus.h"

#include <new>

#include <framework/Errno.h>

#include "params/ModemLog.h"

int sendStatus(const char* func, FunctionRef<android::hardware::Return<void>()> call) {
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
