#include "Text.h"

#include <charconv>

namespace fake {

std::string toHex(const Bytes& bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::optional<Bytes> fromHex(std::string_view text) {
    Bytes bytes(text.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char* pair = text.data() + 2 * i;
        if (std::from_chars(pair, pair + 2, bytes[i], 16).ptr != pair + 2) {
            return std::nullopt;
        }
    }
    return text.size() % 2 == 0 ? std::optional(bytes) : std::nullopt;
}

std::string printable(std::string text) {
    for (char& c : text) {
        const auto code = static_cast<unsigned char>(c);
        c = code < ' ' || code == 0x7f ? '.' : c;
    }
    return text;
}

std::optional<std::vector<std::string>> splitQuoted(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    std::string piece;
    bool inside = false;
    bool wasQuoted = false;
    const auto endPiece = [&] {
        if (separator != ' ' || wasQuoted || !piece.empty()) {
            pieces.push_back(std::move(piece));
        }
        piece.clear();
        wasQuoted = false;
    };
    for (const char c : text) {
        if (c == '"') {
            inside = !inside;
            wasQuoted = true;
        } else if (c == separator && !inside) {
            endPiece();
        } else if (c != ' ' || inside) {
            piece += c;
        }
    }
    endPiece();
    return inside ? std::nullopt : std::optional(std::move(pieces));
}

}  // namespace fake
