#pragma once

#include <chrono>
#include <string>

#include "Failure.h"

/**
 * Types a line at the modem's AT port and prints what it replies; in JSON as one object.
 *
 * @return ANSWERED for OK, ANSWERED_ERROR for ERROR
 * @throws Failure when there is no port, or no final reply in time
 */
ExitCode runAt(int instance, std::chrono::milliseconds timeout, const std::string& line, bool json);
