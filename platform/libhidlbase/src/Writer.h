#pragma once

#include <memory>

namespace hal {

class Outgoing;

/** The process's one thread that sends what sockets did not take at once. Any thread may call. */
namespace writer {

/**
 * Looks after what a connection keeps, until nothing is left or the peer did not take it in time.
 *
 * @throws std::system_error when there can be no thread
 */
void add(std::shared_ptr<Outgoing> outgoing);

/**
 * Counts bytes that the process keeps for all its peers. Above MAX_OUTGOING_IN_ALL the writer cuts
 * the peer for whom it keeps most.
 */
void countKept(ptrdiff_t bytes);

}  // namespace writer

}  // namespace hal
