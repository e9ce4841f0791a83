#pragma once

#include <hidl/Table.h>

#include <string>
#include <vector>

/** The modem's interface, as its table tells it. */
namespace api {

/** IModem, IModemResponse, IModemIndication. */
extern const hal::Interface& REQUESTS;
extern const hal::Interface& ANSWERS;
extern const hal::Interface& EVENTS;

/** Requests that a person can make: those that carry a serial. */
std::vector<const hal::Method*> callable();

/** The callable request of that name; otherwise throws Failure, which names one that is near. */
const hal::Method& request(const std::string& name);

/** That of the names which is nearest to a mistyped one; empty when none is near. */
std::string nearest(const std::string& name, const std::vector<std::string>& names);

/** The arguments of a request without its serial, such as "item:int32_t data:vec<uint8_t>". */
std::string arguments(const hal::Method& request);

}  // namespace api
