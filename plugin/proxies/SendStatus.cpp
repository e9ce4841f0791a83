#include "proxies/SendStatus.h"

#include <framework/Errno.h>

#include "params/ModemLog.h"

int logStatus(const char* func, const android::hardware::Return<void>& status) {
    if (status.isOk()) {
        LOG_I("%s: succeed", func);
        return ERRNO_SUCCESS;
    }
    LOG_E("%s: exception = %s", func, status.description().c_str());
    return ERRNO_FAILED;
}

int logNoMemory(const char* func) {
    LOG_E("%s: exception = %s", func, "no memory for the arguments");
    return ERRNO_FAILED;
}
