#pragma once

#include <functional>
#include <string>

namespace sim {

/** A line above this many bytes ends its connection. */
constexpr size_t TEXT_LINE_MAX = 65536;
constexpr int TEXT_CONNECTIONS_MAX = 32;

/**
 * Listens on the Unix socket `path` until the process ends and serves each connection on a thread
 * of its own: one line in, the text that `execute` gives for it out. A peer that reads nothing for
 * five seconds loses its connection. A stale socket at `path` is replaced and a live one is not.
 *
 * @throws std::system_error when it cannot listen there
 */
void serveTextPort(const std::string& path,
                   std::function<std::string(const std::string& line)> execute);

}  // namespace sim
