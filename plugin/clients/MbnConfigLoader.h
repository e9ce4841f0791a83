#pragma once

#include <cstdint>
#include <vector>

#include <framework/Errno.h>

/**
 * Sends a configuration file to the modem, in chunks under an identifier made from its path. Blocks
 * until the last chunk was taken; chunks that the modem took are not withdrawn after a failure.
 * A path without room for its NUL in 124 bytes stops the process.
 *
 * @param func name of the function that the log lines belong to
 * @param path bytes of the path, without a terminating NUL
 * @return 0, or 1 when the file cannot be read whole or the modem refuses a chunk
 */
Errno loadMbnConfigFile(const char* func, const std::vector<uint8_t>& path);
