#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace fake {

/** A line above this many bytes ends its connection. */
constexpr size_t TEXT_LINE_MAX = 65536;
/** One more connection is told so and closed. */
constexpr int TEXT_CONNECTIONS_MAX = 16;
/** A peer that stalls for so long within a line or a reply loses its connection. */
constexpr std::chrono::seconds TEXT_PATIENCE{5};

/**
 * Listens on the Unix socket `path` until the process ends and serves each connection on a thread
 * of its own: one line in, the text that `execute` gives for it out. A peer of another user, or
 * that there is no thread for, is told so and not served. A stale socket at `path` is replaced and
 * a live one is not.
 *
 * @throws std::system_error when it cannot listen there
 */
void serveTextPort(const std::string& path,
                   std::function<std::string(const std::string& line)> execute);

}  // namespace fake
