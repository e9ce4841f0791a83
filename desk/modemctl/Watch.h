#pragma once

#include "Failure.h"
#include "Options.h"

/** Prints events, and other clients' answers when asked for, until a signal or the count. */
ExitCode runWatch(const Options& options);
