#pragma once

#include <chrono>
#include <istream>
#include <ostream>

#include "Failure.h"

/**
 * Gives commands to the fake modem's text port, one a line, and prints the replies to `out`.
 *
 * @param json a command and the lines of its reply as one JSON object on a line
 * @param timeout how long a reply may stay away
 * @return ANSWERED when each reply ended with "ok", otherwise ANSWERED_ERROR
 * @throws Failure when there is no fake modem, or it goes away or does not reply
 */
ExitCode runFakeModem(int instance, std::chrono::milliseconds timeout, std::istream& commands,
                      std::ostream& out, bool json);
