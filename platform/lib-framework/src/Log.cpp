#include <framework/Desk.h>
#include <framework/Log.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::string_view PRIORITY_LETTERS = "??VDIWEFS";
constexpr size_t LINE_MAX_BYTES = 4096;  // the rest of a longer line is cut, as the device does

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

/** Never destroyed: threads log while the process exits. */
struct State {
    const Filter filter;
    const bool coloured = isatty(STDERR_FILENO) != 0;
    std::atomic<bool> hasSink{false};
    std::mutex mutex;  // guards what follows, and the order of lines
    std::string prefix;
    desk::LogSink sink;

    static State& instance() {
        static State& state = *new State;
        return state;
    }
};

void writeLine(bool coloured, int priority, const char* tag, const char* text) {
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
    char line[LINE_MAX_BYTES + 256];
    const int length = snprintf(line, sizeof(line), "%s%s.%03ld %5d %5ld %c %s: %s%s\n", colour,
                                time, now.tv_nsec / 1000000, getpid(), syscall(SYS_gettid),
                                PRIORITY_LETTERS[std::clamp(priority, 2, 8)], tag, text,
                                coloured ? "\033[0m" : "");
    const size_t size = std::min<size_t>(length, sizeof(line) - 1);
    // A log that cannot be written has nowhere to say so.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line, size);
}

}  // namespace

void Log::printAndroidLog(int priority, const char* tag, const char* format, ...) {
    State& state = State::instance();
    if (!state.hasSink.load(std::memory_order_acquire) && !state.filter.takes(priority, tag)) {
        return;
    }
    char text[LINE_MAX_BYTES];
    std::lock_guard lock(state.mutex);
    const size_t prefix = state.prefix.copy(text, sizeof(text) - 1);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text + prefix, sizeof(text) - prefix, format, arguments);
    va_end(arguments);
    if (state.sink) {
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
}
