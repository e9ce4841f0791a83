#pragma once

#include <framework/Desk.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Allocations.h"

using Lines = std::vector<std::string>;

/** Takes the log's lines while it lives, each as "<priority letter> <text>", of any thread. */
class LogCapture {
public:
    LogCapture() {
        desk::setLogSink([this](int priority, const char*, const char* text) {
            const allocations::Pause pause;
            std::lock_guard lock(mMutex);
            mLines.push_back(std::string{"??VDIWEFS"[priority], ' '} + text);
            mChanged.notify_all();
            if (mAction) {
                mAction(mLines.back());
            }
        });
    }
    ~LogCapture() { desk::setLogSink(nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /** The lines so far, taken out. */
    Lines take() {
        std::lock_guard lock(mMutex);
        return std::exchange(mLines, {});
    }

    /** Runs inside every line, after it was kept; it must not log. */
    void onLine(std::function<void(const std::string& line)> action) {
        std::lock_guard lock(mMutex);
        mAction = std::move(action);
    }

    /** Waits for a line that contains `text`; false when none came in time. */
    bool waitFor(const std::string& text) {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::seconds(30), [&] {
            return std::any_of(mLines.begin(), mLines.end(), [&](const std::string& line) {
                return line.find(text) != std::string::npos;
            });
        });
    }

private:
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    Lines mLines;
    std::function<void(const std::string&)> mAction;
};
