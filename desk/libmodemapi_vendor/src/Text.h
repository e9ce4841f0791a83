#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fake {

using Bytes = std::vector<uint8_t>;

template <class Record>
Bytes toBytes(const Record& record) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    return {bytes, bytes + sizeof(record)};
}

std::string toHex(const Bytes& bytes);

/** Nothing when `text` is not pairs of hexadecimal digits. */
std::optional<Bytes> fromHex(std::string_view text);

/** `text` on one line: a control character becomes a dot. */
std::string printable(std::string text);

/**
 * Splits at `separator`, which double quotes protect. Blanks outside quotes are dropped, and with a
 * blank as separator several of them count as one. Nothing when a quote stays open.
 */
std::optional<std::vector<std::string>> splitQuoted(std::string_view text, char separator);

}  // namespace fake
