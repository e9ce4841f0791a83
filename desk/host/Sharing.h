#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/**
 * Between ox-modem-host and the modemctl processes that share the service's callbacks. The host
 * publishes an object beside the service; each member exports one of its own to it. Arguments stand
 * as the service's interface has them, so that the longest message of the service fits.
 */
namespace sharing {

/** What a member wants beside answers to its own requests; bits. */
enum Interest : uint32_t { NONE = 0, EVENTS = 1, ALL_ANSWERS = 2 };

/** From member to host. A group is added to the code of a method of IModem. */
enum ToHost : uint32_t {
    JOIN = 1,       ///< u32 Interest, u32 the member's object
    LEAVE = 2,      ///< the host closes the connection when the callbacks are free
    HOLDS = 3,      ///< two-way; u32 Holder
    ASK = 0x10000,  ///< a request
};

/** Who holds the callbacks, as far as the host has seen. */
enum Holder : uint32_t { NOBODY = 0, MEMBERS = 1, ANOTHER = 2 };

/** From host to member. A group is added to the code of a method of the callbacks. */
enum ToMember : uint32_t {
    READY = 1,    ///< requests can be made
    REFUSED = 2,  ///< string: why a request was not made
    NOTE = 3,     ///< string: something to show to whoever watches
    ANSWER = 0x10000,
    EVENT = 0x20000,
};

constexpr uint32_t GROUP = 0xffff0000;

/** Requests in flight of one member; one more is refused. */
constexpr size_t MAX_IN_FLIGHT = 4;

/** The published object; its name is that of the service. */
constexpr char DESCRIPTOR[] = "modemctl@1.0::Sharing";

inline std::string name(int instance) {
    return "instance" + std::to_string(instance);
}

/**
 * Lets any number of modemctl processes use the modem services of this process, each of which knows
 * the callbacks of one client. The host takes the callbacks while there is a member, and passes on:
 * each answer to the member that made the request, events and, on demand, all answers to those that
 * watch. When another client takes the callbacks, the host takes them back. Serves until the
 * process ends.
 *
 * @throws std::runtime_error when it cannot be published
 */
void start();

}  // namespace sharing
