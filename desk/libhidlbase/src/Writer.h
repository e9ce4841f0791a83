#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

namespace hal {

class Outgoing;

/** The process's one thread that sends what sockets did not take at once. Any thread may call. */
namespace writer {

/** What is held back goes out after so long, whatever the thread does that holds it. */
constexpr auto HOLD_LIMIT = std::chrono::milliseconds(1);

/**
 * Looks after what a connection keeps, until nothing is left or the peer did not take it in time.
 *
 * @throws std::system_error when there can be no thread
 */
void add(std::shared_ptr<Outgoing> outgoing);

/**
 * Sends after HOLD_LIMIT what a connection holds back, unless somebody did before.
 *
 * @throws std::system_error when there can be no thread
 */
void hold(std::shared_ptr<Outgoing> outgoing);

/**
 * Counts bytes that the process keeps for all its peers. Above MAX_OUTGOING_IN_ALL the writer cuts
 * the peer for whom it keeps most.
 */
void countKept(ptrdiff_t bytes);

}  // namespace writer

}  // namespace hal
