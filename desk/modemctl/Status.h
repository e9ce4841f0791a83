#pragma once

#include <string>
#include <vector>

#include "Failure.h"

/** What can be seen of the services from outside; neither of these takes the callbacks. */
namespace status {

/** Both instances: process, holder of the callbacks, ports, services connected and bound. */
ExitCode print(bool json);

/** An instance's own words about its state. @throws Failure when there is no service */
ExitCode printDebug(int instance, std::vector<std::string> options);

}  // namespace status
