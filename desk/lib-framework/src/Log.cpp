#include <framework/Desk.h>
#include <framework/Log.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "LogFile.h"
#include "runtime/ErrorOutput.h"

using runtime::ErrorOutput;

namespace {

constexpr std::string_view PRIORITY_LETTERS = "??VDIWEFS";
constexpr char STDERR[] = "stderr";
constexpr int LAST_WORDS_MS = 1000;  // how long a fatal line may wait for its reader

/** Lines of a lower priority are for nobody; 0 while that is not known. */
std::atomic<int> sLowest{0};

/** Lowest priorities by tag, from `ANDROID_LOG_TAGS`: "TAG:W OTHER:E *:S". */
class Filter {
public:
    Filter() {
        const char* text = getenv("ANDROID_LOG_TAGS");
        std::string_view rest = text != nullptr ? text : "";
        while (!rest.empty()) {
            const size_t end = std::min(rest.find_first_of(" ,"), rest.size());
            add(rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }

    bool takes(int priority, std::string_view tag) const {
        for (const auto& [name, lowest] : mByTag) {
            if (name == tag) {
                return priority >= lowest;
            }
        }
        return priority >= mDefault;
    }

    /** Of all tags. */
    int lowest() const {
        int lowest = mDefault;
        for (const auto& [name, priority] : mByTag) {
            lowest = std::min(lowest, priority);
        }
        return lowest;
    }

private:
    void add(std::string_view expression) {
        const size_t colon = expression.find(':');
        const size_t letter = colon + 1 < expression.size()
                                      ? PRIORITY_LETTERS.find(expression[colon + 1], 2)
                                      : std::string_view::npos;
        if (colon == std::string_view::npos || letter == std::string_view::npos) {
            return;
        }
        const std::string_view tag = expression.substr(0, colon);
        if (tag == "*") {
            mDefault = static_cast<int>(letter);
        } else {
            mByTag.emplace_back(tag, static_cast<int>(letter));
        }
    }

    std::vector<std::pair<std::string, int>> mByTag;
    int mDefault = 0;
};

/** Formats one line as logcat does and gives its size with newline; what does not fit is cut. */
size_t formatLine(char* line, size_t room, bool coloured, int priority, const char* tag,
                  const char* text) {
    static constexpr std::string_view RESET = "\033[0m";
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char time[32];
    strftime(time, sizeof(time), "%m-%d %H:%M:%S", &local);
    const char* colour = !coloured                          ? ""
                         : priority >= LOG_PRIORITY_ERROR   ? "\033[31m"
                         : priority == LOG_PRIORITY_WARNING ? "\033[33m"
                                                            : "\033[2m";
    room -= RESET.size() + 1;
    const int length = snprintf(line, room, "%s%s.%03ld %5d %5ld %c %s: %s", colour, time,
                                now.tv_nsec / 1000000, getpid(), syscall(SYS_gettid),
                                PRIORITY_LETTERS[std::clamp(priority, 2, 8)], tag, text);
    size_t size = std::clamp<size_t>(length, 0, room - 1);
    size += coloured ? RESET.copy(line + size, RESET.size()) : 0;
    line[size++] = '\n';
    return size;
}

size_t formatLost(char* line, size_t room, bool coloured, uint64_t lost, const char* where) {
    char text[64];
    snprintf(text, sizeof(text), "%" PRIu64 " lines lost, %s took no more", lost, where);
    return formatLine(line, room, coloured, LOG_PRIORITY_WARNING, "FRAMEWORK", text);
}

/** Writes a line, and before it in the same write the number of lines lost there since, if any. */
void writeLine(bool coloured, int priority, const char* tag, const char* text) {
    char lines[ErrorOutput::LINE_MAX_BYTES];
    const auto format = [&](uint64_t lost, const char* where) {
        const size_t size = lost > 0 ? formatLost(lines, sizeof(lines), coloured, lost, where) : 0;
        return size + formatLine(lines + size, sizeof(lines) - size, coloured, priority, tag, text);
    };
    const uint64_t unkept = LogFile::get().takeLost();
    const uint64_t lost = ErrorOutput::get().takeLost();
    size_t size = format(unkept, "the disk");
    if (!LogFile::get().write(lines, size)) {
        LogFile::get().addLost(unkept);
    }
    if (unkept > 0 || lost > 0) {
        size = format(lost, STDERR);
    }
    const int patience = priority == LOG_PRIORITY_FATAL ? LAST_WORDS_MS : ErrorOutput::PATIENCE_MS;
    if (!ErrorOutput::get().write(lines, size, patience)) {
        ErrorOutput::get().addLost(lost);
    }
}

/** Tells of lost lines after which no other line came. Runs at exit. */
void tellLostAtExit(bool coloured) {
    char line[ErrorOutput::LINE_MAX_BYTES];
    if (const uint64_t lost = ErrorOutput::get().takeLost(); lost > 0) {
        ErrorOutput::get().write(line, formatLost(line, sizeof(line), coloured, lost, STDERR));
    }
}

/** Never destroyed: threads log while the process exits. */
struct State {
    State() {
        std::atexit([] { tellLostAtExit(instance().coloured); });
        sLowest = filter.lowest();
    }

    const Filter filter;
    const bool coloured = isatty(STDERR_FILENO) != 0;
    std::atomic<bool> hasSink{false};
    std::mutex mutex;  // guards what follows; not held while a line is written to stderr
    std::string prefix;
    desk::LogSink sink;

    static State& instance() {
        static State& state = *new State;
        return state;
    }
};

}  // namespace

void Log::printAndroidLog(int priority, const char* tag, const char* format, ...) {
    if (priority < sLowest) {
        return;
    }
    State& state = State::instance();
    if (!state.hasSink.load(std::memory_order_acquire) && !state.filter.takes(priority, tag)) {
        return;
    }
    char text[ErrorOutput::LINE_MAX_BYTES];
    std::unique_lock lock(state.mutex);
    const size_t prefix = state.prefix.copy(text, sizeof(text) - 1);
    if (!state.sink) {
        lock.unlock();
    }
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text + prefix, sizeof(text) - prefix, format, arguments);
    va_end(arguments);
    if (lock.owns_lock()) {
        state.sink(priority, tag, text);
    } else {
        writeLine(state.coloured, priority, tag, text);
    }
}

void Log::setPrefix(const std::string& prefix) {
    State& state = State::instance();
    std::lock_guard lock(state.mutex);
    state.prefix = prefix;
}

void desk::setLogSink(LogSink sink) {
    State& state = State::instance();
    std::lock_guard lock(state.mutex);
    std::swap(state.sink, sink);
    state.hasSink.store(static_cast<bool>(state.sink), std::memory_order_release);
    sLowest = state.sink ? 0 : state.filter.lowest();
}
