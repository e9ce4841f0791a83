#pragma once

#include "Failure.h"
#include "Options.h"

/**
 * Makes one request and prints its own answer.
 *
 * @param words the method and its arguments
 * @throws Failure when there is no answer, or the request cannot be made
 */
ExitCode runCall(const Options& options, const Words& words);
