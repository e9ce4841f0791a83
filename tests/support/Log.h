#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/** Takes the log's lines while it lives, each as "<priority letter> <text>", of any thread. */
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /** The lines so far, taken out. */
    std::vector<std::string> take();

    /** Runs inside every line, after it was kept; it must not log. */
    void onLine(std::function<void(const std::string& line)> action);

    /** Waits for a line that contains `text`; false when none came in time. */
    bool waitFor(const std::string& text);

private:
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<std::string> mLines;
    std::function<void(const std::string&)> mAction;
};
