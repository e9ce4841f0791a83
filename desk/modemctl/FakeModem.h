#pragma once

#include <chrono>
#include <istream>
#include <ostream>

#include "Failure.h"
#include "Options.h"

/**
 * Gives commands to the fake modem's text port, one a line, and prints the replies to `out`. Blank
 * lines and comments are skipped; `sleep`, `wait` and `expect` are done here.
 *
 * @param json a command and the lines of its reply as one JSON object on a line
 * @param timeout how long a reply may stay away, and what is waited for
 * @param file when given, the first error ends the run with a Failure that names file and line
 * @return the status of the last command that failed, ANSWERED when none did
 * @throws Failure when there is no fake modem, or it goes away or does not reply
 */
ExitCode runFakeModem(int instance, std::chrono::milliseconds timeout, std::istream& commands,
                      std::ostream& out, bool json, const std::string& file = "");

/** The same with one command given as words, a file, `-` for a file on stdin, or none for stdin. */
ExitCode runFakeModem(const Options& options, const Words& words);
