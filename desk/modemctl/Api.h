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

/** The answer to a callable request. */
const hal::Method& answerTo(const hal::Method& request);

/**
 * Says that a name is none of `names`, and which one was meant when one is near.
 *
 * @param kind what it names, such as "method"
 * @param names at least one
 * @param list what modemctl is to be given to print them all
 */
std::string unknown(const std::string& name, const std::string& kind,
                    const std::vector<std::string>& names, const std::string& list);

/** The arguments of a request without its serial, such as "item:int32_t data:vec<uint8_t>". */
std::string arguments(const hal::Method& request);

}  // namespace api
