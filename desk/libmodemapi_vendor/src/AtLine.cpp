#include "AtLine.h"

#include <regex>
#include <utility>

#include "Text.h"
#include "modem_api.h"

namespace fake {

namespace {

const auto& expression(const char* text) {
    return *new std::regex(text, std::regex::icase);
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

AtRequest parseAtLine(const std::string& line) {
    static const auto& PLAIN = expression(" *(?:AT *(E?)([01]?) *)?");
    static const auto& EXTENDED = expression(" *AT *(\\+[^=?]*?) *(?:= *(.*?) *)?");
    std::smatch parts;
    if (line.size() > AtLine::LENGTH_MAX) {
        return {AtRequest::ERROR};
    }
    if (line.find_first_not_of(' ') == line.npos) {
        return {AtRequest::NOTHING};
    }
    if (std::regex_match(line, parts, PLAIN) && parts[1].length() >= parts[2].length()) {
        return {parts[1].length() == 0 ? AtRequest::OK
                : parts[2] == "1"      ? AtRequest::ECHO_ON
                                       : AtRequest::ECHO_OFF};
    }
    if (!std::regex_match(line, parts, EXTENDED) || parts[2] == "?") {
        return {AtRequest::ERROR};
    }
    AtRequest request{AtRequest::EXTENDED, parts[1]};
    const auto tokens = splitQuoted(parts[2].str(), ',');
    if (!tokens || tokens->size() > MODEM_ATLOG_TOKENS_MAX) {
        return {AtRequest::ERROR};
    }
    if (parts[2].length() > 0) {
        request.tokens = *tokens;
    }
    return request;
}

}  // namespace fake
