#pragma once

#include <string>

namespace fake {

/**
 * Runs one line of the text port. The answer is lines of its own, if there are any, and then the
 * line "ok" or "error: " with what is wrong and where; each with its newline. From any thread.
 */
std::string runCommand(const std::string& line);

}  // namespace fake
