#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/** Logcat's text: lines, and what stands in front of a line's own text. */
namespace logs {

/** A moment in microseconds, counted as if every year had a 29th of February. */
using Moment = int64_t;

constexpr Moment NEVER = -1;

struct Line {
    Moment time = NEVER;
    bool fine = false;  ///< the format gives microseconds, not milliseconds
    int32_t pid = 0;
    int32_t thread = 0;  ///< 0 in the format "time", which does not tell it
    char level = ' ';    ///< V D I W E F
    std::string_view tag;
    std::string_view text;
};

/**
 * Reads a line of `logcat -v threadtime` or `-v time`, also with years, microseconds, zone or user.
 * Views point into `raw`.
 *
 * @return false for anything else
 */
bool parseLine(std::string_view raw, Line& line);

/** "11-23 02:36:53.291" */
std::string dateAndTime(Moment moment);

/** A copy that a terminal and a table take: control characters become question marks. */
std::string printable(std::string_view text);

/** The lines of a file descriptor, with or without CR at the end, in bounded memory. */
class LineReader {
public:
    explicit LineReader(int file) : mFile(file), mBuffer(BUFFER_BYTES) {}

    /**
     * The next line, valid until the next call; what it has beyond a limit is left out.
     *
     * @return false at the end, and when a signal interrupts the wait for more
     * @throws std::system_error when the file cannot be read
     */
    bool next(std::string_view& line);

private:
    static constexpr size_t BUFFER_BYTES = 1 << 18;
    static constexpr size_t LINE_BYTES = 8192;  ///< twice what the device takes

    void fill();

    const int mFile;
    std::vector<char> mBuffer;
    size_t mBegin = 0;  ///< of what was read and not yet given out
    size_t mEnd = 0;
    bool mMore = true;
    bool mSkipping = false;  ///< until the end of a line that was too long
};

}  // namespace logs
