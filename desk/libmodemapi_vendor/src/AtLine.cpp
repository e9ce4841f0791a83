#include "AtLine.h"

#include <strings.h>

#include <utility>

#include "Text.h"
#include "modem_api.h"

namespace fake {

namespace {

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(' ');
    return begin == text.npos ? std::string_view()
                              : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

bool equalsIgnoringCase(std::string_view text, std::string_view other) {
    return text.size() == other.size() && strncasecmp(text.data(), other.data(), other.size()) == 0;
}

AtRequest parseExtended(std::string_view body) {
    const size_t equals = body.find('=');
    AtRequest request{AtRequest::EXTENDED, std::string(trimmed(body.substr(0, equals)))};
    if (request.name.find('?') != std::string::npos) {
        return {AtRequest::ERROR};
    }
    const auto arguments = equals == body.npos ? "" : trimmed(body.substr(equals + 1));
    if (arguments.empty()) {
        return request;
    }
    auto tokens = splitQuoted(arguments, ',');
    if (!tokens || tokens->size() > MODEM_ATLOG_TOKENS_MAX || arguments == "?") {
        return {AtRequest::ERROR};
    }
    request.tokens = std::move(*tokens);
    return request;
}

}  // namespace

std::optional<std::string> AtLine::feed(char byte, std::string& output) {
    const bool afterReturn = std::exchange(mAfterReturn, byte == '\r');
    if (byte == '\n' && afterReturn) {
        return std::nullopt;
    }
    std::string seen;
    std::optional<std::string> line;
    if (byte == '\r' || byte == '\n') {
        seen = byte;
        line = std::exchange(mText, {});
    } else if (byte == '\b' || byte == 0x7f) {
        seen = mText.empty() ? "" : "\b \b";
        mText.resize(mText.size() - (mText.empty() ? 0 : 1));
    } else if (static_cast<unsigned char>(byte) >= ' ' && mText.size() <= LENGTH_MAX) {
        seen = byte;
        mText += byte;
    }
    output += mEcho ? seen : "";
    return line;
}

AtRequest parseAtLine(std::string_view line) {
    const std::string_view text = trimmed(line);
    if (text.empty()) {
        return {AtRequest::NOTHING};
    }
    if (line.size() > AtLine::LENGTH_MAX || !equalsIgnoringCase(text.substr(0, 2), "AT")) {
        return {AtRequest::ERROR};
    }
    const std::string_view body = trimmed(text.substr(2));
    if (body.empty() || equalsIgnoringCase(body, "E1")) {
        return {body.empty() ? AtRequest::OK : AtRequest::ECHO_ON};
    }
    if (equalsIgnoringCase(body, "E") || equalsIgnoringCase(body, "E0")) {
        return {AtRequest::ECHO_OFF};
    }
    return body.front() == '+' ? parseExtended(body) : AtRequest{AtRequest::ERROR};
}

}  // namespace fake
