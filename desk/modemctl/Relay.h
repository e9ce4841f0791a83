#pragma once

#include <cstdint>
#include <string>

/**
 * The service knows one client's callbacks. So that any number of modemctl processes can be at work
 * beside each other, one process per instance, the relay, holds the callbacks and passes on: each
 * answer to the member that made the request, and events, and with ALL answers, to those that
 * watch. The first modemctl starts it. It ends with the service, or two seconds after its last
 * member has left; without a member it has no callbacks. Members and relay talk over the desk's
 * transport: the relay is a published object, each member exports one of its own to it.
 *
 * A message's code tells what it is, its arguments stand as the service's interface has them, so
 * that the longest message of the service goes through, too.
 */
namespace relay {

/** What a member wants beside answers to its own requests; bits. */
enum Interest : uint32_t { NONE = 0, EVENTS = 1, ALL_ANSWERS = 2 };

/** From member to relay. A group is added to the code of a method of IModem. */
enum ToRelay : uint32_t {
    JOIN = 1,                   ///< u32 Interest, u32 the member's object
    LEAVE = 2,                  ///< the relay closes the connection
    ASK = 0x10000,              ///< a request; the relay chooses the serial
    ASK_WITH_SERIAL = 0x20000,  ///< a request as it is
    AWAIT = 0x30000,            ///< i32 serial: was asked through a relay that has gone
};

/** From relay to member. A group is added to the code of a method of the callbacks. */
enum ToMember : uint32_t {
    READY = 1,     ///< i32 process of the relay; requests can be made
    ACCEPTED = 2,  ///< i32 serial; the answers to ASK come in the order of the requests
    REFUSED = 3,   ///< string: why a request was not made
    NOTE = 4,      ///< string: something to tell whoever watches
    GONE = 5,      ///< string: why there is no service
    ANSWER = 0x10000,
    EVENT = 0x20000,
};

constexpr uint32_t GROUP = 0xffff0000;

/** Requests under way through one relay; one more is refused. */
constexpr size_t MAX_UNDER_WAY = 4096;

/** What the relay of an instance is published as. */
std::string descriptor();
std::string name(int instance);

/** Process that holds an instance's callbacks for all modemctl, 0 for none. */
int holder(int instance);

/** Starts the relay of an instance in a process of its own, which outlives this one. */
void start(int instance);

/** Is the relay until its end, which is the end of the process. */
[[noreturn]] void run(int instance);

}  // namespace relay
