#pragma once

#include <new>

#include <hidl/Status.h>

/** Logs how a call to a callback went. Returns 0, or 1 when the transport reported an exception. */
int logStatus(const char* func, const android::hardware::Return<void>& status);

/** Logs that there was no memory to convert the arguments of a call; returns 1. */
int logNoMemory(const char* func);

/**
 * Makes one call to a callback and logs how it went.
 *
 * @param func name of the function that sends
 * @param call converts the arguments, calls, and returns the transport status
 * @return 0, or 1 when the transport reported an exception or there was no memory to convert
 */
template <class Call>
int sendStatus(const char* func, const Call& call) {
    try {
        return logStatus(func, call());
    } catch (const std::bad_alloc&) {
        return logNoMemory(func);
    }
}
