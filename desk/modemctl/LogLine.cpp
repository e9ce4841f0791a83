#include "LogLine.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

namespace logs {

namespace {

constexpr int DAYS_BEFORE[] = {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366};
constexpr Moment SECOND = 1000000;
constexpr Moment DAY = 86400 * SECOND;

/** Reads a text from its front. After the first thing that does not fit, `good` stays false. */
class Cursor {
public:
    explicit Cursor(std::string_view rest) : mRest(rest) {}

    bool good() const { return mGood; }
    void fail() { mGood = false; }
    std::string_view rest() const { return mRest; }
    bool at(char letter) const { return !mRest.empty() && mRest.front() == letter; }

    void expect(char letter) {
        mGood = mGood && at(letter);
        mRest.remove_prefix(mGood ? 1 : 0);
    }

    void skipBlanks() { mRest.remove_prefix(std::min(mRest.find_first_not_of(' '), mRest.size())); }

    /** A decimal number in its limits; `digits` tells how many there were. */
    int number(int least, int most, size_t* digits = nullptr) {
        int value = 0;
        const auto [end, error] = std::from_chars(mRest.data(), mRest.data() + mRest.size(), value);
        mGood = mGood && error == std::errc() && value >= least && value <= most;
        if (digits != nullptr) {
            *digits = end - mRest.data();
        }
        mRest.remove_prefix(end - mRest.data());
        return mGood ? value : least;
    }

    std::string_view word() {
        skipBlanks();
        const std::string_view found = mRest.substr(0, mRest.find(' '));
        mRest.remove_prefix(found.size());
        return found;
    }

    /** Up to the separator, which is taken too. */
    std::string_view until(std::string_view separator) {
        const size_t end = mRest.find(separator);
        mGood = mGood && end != std::string_view::npos;
        const std::string_view found = mRest.substr(0, end);
        mRest.remove_prefix(mGood ? end + separator.size() : 0);
        return found;
    }

private:
    std::string_view mRest;
    bool mGood = true;
};

/** "[YYYY-]MM-DD HH:MM:SS.mmm[uuu] [+ZZZZ]" */
void readTime(Cursor& cursor, Line& line) {
    size_t digits = 0;
    int year = 0;
    int month = cursor.number(1, 9999, &digits);
    if (digits == 4) {
        year = month;
        cursor.expect('-');
        month = cursor.number(1, 12);
    }
    cursor.expect('-');
    const int day = cursor.number(1, 31);
    cursor.skipBlanks();
    Moment seconds = cursor.number(0, 23);
    for (const int most : {59, 60}) {
        cursor.expect(':');
        seconds = seconds * 60 + cursor.number(0, most);
    }
    cursor.expect('.');
    const int fraction = cursor.number(0, 999999, &digits);
    line.fine = digits == 6;
    if (!cursor.good() || month > 12 || (digits != 3 && digits != 6)) {
        cursor.fail();
        return;
    }
    line.time = (year * 366 + DAYS_BEFORE[month - 1] + day - 1) * DAY + seconds * SECOND +
                fraction * (line.fine ? 1 : 1000);
    cursor.skipBlanks();
    if (cursor.at('+') || cursor.at('-')) {
        cursor.word();
    }
}

bool isLevel(std::string_view word) {
    return word.size() == 1 && strchr("VDIWEF", word[0]) != nullptr;
}

/** "[USER] PID THREAD LEVEL TAG: TEXT", where the level is the third word or the fourth. */
bool readThreadTime(Cursor cursor, Line& line) {
    std::string_view words[4];
    size_t count = 0;
    while (count < 4 && (count == 0 || !isLevel(words[count - 1]))) {
        words[count++] = cursor.word();
    }
    if (count < 3 || !isLevel(words[count - 1])) {
        return false;
    }
    Cursor pid(words[count - 3]);
    Cursor thread(words[count - 2]);
    line.pid = pid.number(0, INT32_MAX);
    line.thread = thread.number(0, INT32_MAX);
    line.level = words[count - 1][0];
    cursor.skipBlanks();
    line.tag = cursor.until(": ");
    line.text = cursor.rest();
    return pid.good() && thread.good() && cursor.good();
}

/** "LEVEL/TAG( PID): TEXT" */
bool readTimeFormat(Cursor cursor, Line& line) {
    line.level = cursor.until("/").front();
    line.tag = cursor.until("(");
    cursor.skipBlanks();
    line.pid = cursor.number(0, INT32_MAX);
    line.thread = 0;
    cursor.expect(')');
    cursor.expect(':');
    cursor.skipBlanks();
    line.text = cursor.rest();
    return cursor.good() && isLevel({&line.level, 1});
}

/** A terminal's colours stand around the whole line. */
std::string_view withoutColour(std::string_view raw) {
    constexpr std::string_view RESET = "\033[0m";
    if (raw.size() > 2 && raw.front() == '\033') {
        raw.remove_prefix(std::min(raw.find('m') + 1, raw.size()));
    }
    const bool reset = raw.size() >= RESET.size() && raw.substr(raw.size() - RESET.size()) == RESET;
    raw.remove_suffix(reset ? RESET.size() : 0);
    return raw;
}

}  // namespace

bool parseLine(std::string_view raw, Line& line) {
    Cursor cursor(withoutColour(raw));
    readTime(cursor, line);
    if (!cursor.good()) {
        return false;
    }
    const bool briefLevel = cursor.rest().size() > 1 && cursor.rest()[1] == '/';
    if (!(briefLevel ? readTimeFormat(cursor, line) : readThreadTime(cursor, line))) {
        return false;
    }
    line.tag = line.tag.substr(0, line.tag.find_last_not_of(' ') + 1);
    return true;
}

std::string dateAndTime(Moment moment) {
    const int day = static_cast<int>(moment / DAY % 366);
    const int month = static_cast<int>(
            std::upper_bound(std::begin(DAYS_BEFORE), std::end(DAYS_BEFORE), day) - DAYS_BEFORE);
    const auto millis = static_cast<int>(moment % DAY / 1000);
    char text[64];
    snprintf(text, sizeof(text), "%02d-%02d %02d:%02d:%02d.%03d", month,
             day - DAYS_BEFORE[month - 1] + 1, millis / 3600000, millis / 60000 % 60,
             millis / 1000 % 60, millis % 1000);
    return text;
}

std::string printable(std::string_view text) {
    std::string copy(text);
    std::replace_if(
            copy.begin(), copy.end(), [](unsigned char byte) { return iscntrl(byte) != 0; }, '?');
    return copy;
}

void LineReader::fill() {
    std::copy(mBuffer.begin() + mBegin, mBuffer.begin() + mEnd, mBuffer.begin());
    mEnd -= mBegin;
    mBegin = 0;
    const ssize_t count = ::read(mFile, mBuffer.data() + mEnd, mBuffer.size() - mEnd);
    if (count < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "log");
    }
    mEnd += std::max<ssize_t>(count, 0);
    mMore = count > 0;
}

bool LineReader::next(std::string_view& line) {
    while (true) {
        const char* begin = mBuffer.data() + mBegin;
        const auto* newline = static_cast<const char*>(memchr(begin, '\n', mEnd - mBegin));
        const size_t size = newline != nullptr ? newline - begin : mEnd - mBegin;
        const bool whole = newline != nullptr || !mMore;
        if (!whole && size < LINE_BYTES) {
            fill();
            continue;
        }
        if (size == 0 && newline == nullptr) {
            return false;
        }
        mBegin += size + (newline != nullptr ? 1 : 0);
        const bool rest = std::exchange(mSkipping, !whole);
        if (!rest) {
            line = std::string_view(begin, std::min(size, LINE_BYTES));
            line.remove_suffix(!line.empty() && line.back() == '\r' ? 1 : 0);
            return true;
        }
    }
}

}  // namespace logs
