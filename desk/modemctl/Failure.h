#pragma once

#include <stdexcept>
#include <string>

/** How modemctl ends. */
enum ExitCode : int { ANSWERED, ANSWERED_ERROR, WRONG_USAGE, NO_SERVICE, NO_ANSWER };

/** What to type when nobody serves an instance, behind the reason. */
std::string howToStart(int instance);

/** Ends the command with a line for stderr and an exit code. */
struct Failure : std::runtime_error {
    Failure(ExitCode exit, const std::string& line) : std::runtime_error(line), code(exit) {}

    ExitCode code;
};
