#pragma once

#include <string>
#include <vector>

#include "Failure.h"
#include "Options.h"

/** What can be seen of the services from outside; neither of these takes the callbacks. */
namespace status {

/** Both instances: process, holder of the callbacks, ports, services connected and bound. */
ExitCode print(bool json, int instance);

/** Waits until an instance is served; throws Failure with NO_SERVICE after that time. */
ExitCode wait(int instance, double seconds);

/** An instance's own words about its state. @throws Failure when there is no service */
ExitCode printDebug(const Options& options);

}  // namespace status
