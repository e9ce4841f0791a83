#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

/** What this build of the framework offers to tests, beyond what the device's has. */
namespace desk {

enum class Delivery {
    THREADS,  ///< each handler on its own thread
    STEPS,    ///< nothing runs until `step`
    CALLER,   ///< `dispatch` runs `handle` on the caller's thread
};

/** Switches delivery; not while messages are queued. */
void setDelivery(Delivery delivery);

/** STEPS: messages that wait, over all handlers. */
size_t pendingMessages();

/**
 * STEPS: handles the first message of one handler on the caller's thread.
 *
 * @param choice picks among the handlers that have messages, counted from the one whose first
 *        message is oldest; taken modulo their number, so that random numbers make an order
 * @return false when nothing waits
 */
bool step(uint64_t choice = 0);

/** Messages that one handler's queue holds before it refuses; 1024 at start. */
void setQueueLimit(size_t messages);

/** What `dispatch` returns when a queue is full. */
constexpr int DISPATCH_QUEUE_FULL = 11;

/**
 * Takes the log's lines in place of stderr, those of every priority; an empty function ends that.
 * It is called on the thread that logs, under the log's lock, so it must not log itself. The text
 * begins with the prefix, if one is set. The log allocates nothing for a line.
 */
using LogSink = std::function<void(int priority, const char* tag, const char* text)>;
void setLogSink(LogSink sink);

}  // namespace desk
