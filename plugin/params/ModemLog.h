#pragma once

#include <framework/Log.h>

// Macros, so that the compiler checks each format against its arguments.
#define LOG_I(...) Log::printAndroidLog(LOG_PRIORITY_INFO, "LIB-OX-MODEM", __VA_ARGS__)
#define LOG_W(...) Log::printAndroidLog(LOG_PRIORITY_WARNING, "LIB-OX-MODEM", __VA_ARGS__)
#define LOG_E(...) Log::printAndroidLog(LOG_PRIORITY_ERROR, "LIB-OX-MODEM", __VA_ARGS__)
#define LOG_F(...) Log::printAndroidLog(LOG_PRIORITY_FATAL, "LIB-OX-MODEM", __VA_ARGS__)
