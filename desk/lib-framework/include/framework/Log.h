#pragma once

#include <string>

/** Android log priorities. */
enum : int {
    LOG_PRIORITY_DEBUG = 3,
    LOG_PRIORITY_INFO = 4,
    LOG_PRIORITY_WARNING = 5,
    LOG_PRIORITY_ERROR = 6,
    LOG_PRIORITY_FATAL = 7,
};

/**
 * The system log, on stderr. Safe on any thread. A line that finds stderr full waits up to 100 ms,
 * and no line waits again before the reader has taken something; what stderr does not take then is
 * dropped, and a later line tells how many were. Only a fatal line, after which the process ends,
 * waits up to a second. The process ignores SIGPIPE, as ox-modem-host does.
 */
class Log {
public:
    /** Writes one line; a priority that the log does not take costs one test and no formatting. */
    static void printAndroidLog(int priority, const char* tag, const char* format, ...)
            __attribute__((format(printf, 3, 4)));

    /** Text that leads every later line of the process. */
    static void setPrefix(const std::string& prefix);
};
