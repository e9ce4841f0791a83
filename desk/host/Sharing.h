#pragma once

#include <hidl/Transport.h>

namespace sharing {

/**
 * Lets any number of modemctl processes use a service that knows the callbacks of one client. The
 * host takes the callbacks while there is a member, and passes on: each answer to the member that
 * made the request, events and, on demand, all answers to those that watch. When another client
 * takes the callbacks, the host takes them back. Serves until the process ends.
 *
 * @throws std::runtime_error when it cannot be published
 */
void share(const hal::Registration& service);

}  // namespace sharing
