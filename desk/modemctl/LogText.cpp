#include "LogText.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <utility>

namespace logs {

namespace {

/**
 * The texts: %s is a word, which ends at a blank or at what follows it, or the rest at the end of a
 * text; %d a number; %M a request's name; %R a response's function, "respond" and the name with a
 * capital letter; %H a handler's function, which need not have the request's name; * whatever
 * follows. The last word becomes the sign's name, the first number its serial and the second one
 * its err.
 */
struct TextRow {
    Kind kind;
    const char* text;
};

constexpr TextRow TEXTS[] = {
        {Kind::ENTERED, "ModemImpl::%M: serial = %d*"},
        {Kind::HANDLING, "handle: %s is handling message: %d"},
        {Kind::ANSWERED, "%R: serial = %d, err = %d*"},
        {Kind::DELIVERED, "%R: succeed"},
        {Kind::CALLED_BACK,
         "modemApiAsyncCallback: processing modem api %s async callback data for message %d"},
        {Kind::SENT, "%H: successfully sent async request"},
        {Kind::SENT, "%H: successfully sent request to modem"},
        {Kind::SENT, "%H: successfully sent request"},
        {Kind::SENT, "%H: successfully activated regular mbn"},
        {Kind::EVENT_RECEIVED, "received modem api event %d"},
        {Kind::TOKEN, "%R: token is %d"},
        {Kind::EVENT, "RRC STATE CHANGED"},
        {Kind::EVENT, "NR RADIO INFO"},
        {Kind::EVENT, "POWER SAVE MODE REPORT"},
        {Kind::EVENT, "AT command reported"},
        {Kind::EVENT, "async response for %s reported"},
        {Kind::EVENT, "modem api event %d NOT supported"},
        {Kind::CONNECTED, "%s QMI service is connected"},
        {Kind::DISCONNECTED, "%s QMI service is disconnected"},
        {Kind::BIND_FAILED, "%s: failed to bind %s QMI subscription for instance id %d"},
        {Kind::BIND_RETRIED,
         "%s: retry binding %s QMI subscription with instance id %d for %d times, max %d times"},
        {Kind::BIND_GIVEN_UP,
         "%s: retry binding %s QMI subscription with instance id %d reach max %d times"},
        {Kind::AT_COMMAND, "%s: parsed handle = %s, op code = %s, name = %s, token number = %d"},
        {Kind::AT_TOKEN, "%s: parsed token[%d] = %s"},
        {Kind::AT_OK, "%s: successfully sent log control response to modem"},
        {Kind::AT_ERROR, "%s: successfully sent log control error response"},
        {Kind::INSTALLED, "set resp and ind callbacks for HIDL modem service"},
        {Kind::LOADED, "onLoad: loading modem plugin"},
        {Kind::DETAIL, "ModemImpl::%M: no memory for the arguments"},
        {Kind::DETAIL, "%R: respCb null, can't send response"},
        {Kind::DETAIL, "%R: exception = *"},
        {Kind::DETAIL, "%R: event data of *"},
        {Kind::DETAIL, "QMI client is connected, nothing to do"},
        {Kind::DETAIL, "Failed to *"},
        {Kind::DETAIL, "invalid data input for QMI service *"},
        {Kind::DETAIL, "unknow QMI service, can't process service *"},
};

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

std::string_view identifierOf(std::string_view text) {
    size_t size = 0;
    while (size < text.size() && (isalnum(static_cast<unsigned char>(text[size])) != 0)) {
        ++size;
    }
    return text.substr(0, size);
}

/** Fills a sign from a text while it follows one row. */
class Matcher {
public:
    Matcher(std::string_view text, Sign& sign) : mText(text), mSign(sign) {}

    bool match(const char* pattern) {
        for (; *pattern != '\0'; ++pattern) {
            if (*pattern == '*') {
                return true;
            }
            if (*pattern != '%') {
                if (mText.empty() || mText.front() != *pattern) {
                    return false;
                }
                mText.remove_prefix(1);
            } else {
                ++pattern;
                if (!take(*pattern, pattern[1])) {
                    return false;
                }
            }
        }
        return mText.empty();
    }

private:
    bool take(char what, char next) {
        switch (what) {
            case 's':
                return word(next);
            case 'd':
                return number();
            case 'M':
                return method(identifierOf(mText));
            case 'H':
                return function("handle", "Message");
            default:
                return function("respond", "Async") && mSign.method != NO_METHOD;
        }
    }

    bool word(char end) {
        const char stops[] = {' ', end, '\0'};
        mSign.name = end == '\0' ? mText : mText.substr(0, mText.find_first_of(stops));
        mText.remove_prefix(mSign.name.size());
        return end == '\0' || !mSign.name.empty();
    }

    bool number() {
        int32_t value = 0;
        const auto [end, error] = std::from_chars(mText.data(), mText.data() + mText.size(), value);
        mText.remove_prefix(end - mText.data());
        if (int32_t* const places[] = {&mSign.serial, &mSign.err}; mNumbers < std::size(places)) {
            *places[mNumbers++] = value;
        }
        return error == std::errc();
    }

    /** A function of the request's, named with a capital letter between a prefix and a suffix. */
    bool function(std::string_view prefix, std::string_view suffix) {
        if (!startsWith(mText, prefix)) {
            return false;
        }
        std::string_view name = identifierOf(mText);
        mText.remove_prefix(name.size());
        name.remove_prefix(prefix.size());
        const bool cut =
                name.size() > suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
        name.remove_suffix(cut ? suffix.size() : 0);
        mSign.method = methodIndexOfCapital(name);
        return true;
    }

    bool method(std::string_view name) {
        mSign.method = methodIndex(name);
        mText.remove_prefix(name.size());
        return mSign.method != NO_METHOD;
    }

    std::string_view mText;
    Sign& mSign;
    size_t mNumbers = 0;
};

/** "[0] " stands before all that was logged after the instance was known. */
void dropInstance(Sign& sign) {
    const size_t end = sign.text.find("] ");
    int instance = 0;
    if (!startsWith(sign.text, "[") || end == std::string_view::npos) {
        return;
    }
    const char* first = sign.text.data() + 1;
    const char* last = sign.text.data() + end;
    if (const auto [stop, error] = std::from_chars(first, last, instance);
        error == std::errc() && stop == last) {
        sign.instance = instance;
        sign.text.remove_prefix(end + 2);
    }
}

/** For texts that TEXTS does not have: all of the plug-in's begin with the name of a function. */
Kind kindOfOthers(std::string_view text) {
    const std::string_view function = identifierOf(text);
    const bool named = !function.empty() && startsWith(text.substr(function.size()), ": ");
    return named && !startsWith(text, "respond") ? Kind::DETAIL : Kind::UNKNOWN;
}

/** Tags under which a logger tells that it left lines out, and the text that says how many. */
constexpr std::pair<std::string_view, const char*> LOSSES[] = {
        {"FRAMEWORK", "%d lines lost*"},
        {"chatty", "%s expire %d lines"},
        {"chatty", "%s %s expire %d lines"},
};

}  // namespace

uint64_t lostLines(std::string_view tag, std::string_view text) {
    for (const auto& [logger, pattern] : LOSSES) {
        Sign sign;
        if (tag == logger && Matcher(text, sign).match(pattern)) {
            return std::max(sign.serial, 0);
        }
    }
    return 0;
}

Sign readText(std::string_view text) {
    Sign blank;
    blank.text = text;
    dropInstance(blank);
    for (const TextRow& row : TEXTS) {
        Sign sign = blank;
        if (!Matcher(sign.text, sign).match(row.text)) {
            continue;
        }
        sign.kind = row.kind;
        if (sign.kind == Kind::HANDLING || sign.kind == Kind::CALLED_BACK) {
            sign.method = methodOfMessage(sign.name, sign.serial);
        } else if (sign.kind == Kind::EVENT && sign.name.empty()) {
            sign.name = sign.text;
        }
        return sign;
    }
    blank.kind = kindOfOthers(blank.text);
    return blank;
}

}  // namespace logs
