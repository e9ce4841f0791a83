#pragma once

#include <hidl/Status.h>

#include "params/FunctionRef.h"

/**
 * Makes one call to a callback and logs how it went.
 *
 * @param func name of the function that sends
 * @param call converts the arguments, calls, and returns the transport status
 * @return 0, or 1 when the transport reported an exception or there was no memory to convert
 */
int sendStatus(const char* func, FunctionRef<android::hardware::Return<void>()> call);
