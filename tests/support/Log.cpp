#include "tests/support/Log.h"

#include <framework/Desk.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "tests/support/Allocations.h"

LogCapture::LogCapture() {
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

LogCapture::~LogCapture() {
    desk::setLogSink(nullptr);
}

std::vector<std::string> LogCapture::take() {
    std::lock_guard lock(mMutex);
    return std::exchange(mLines, {});
}

void LogCapture::onLine(std::function<void(const std::string&)> action) {
    std::lock_guard lock(mMutex);
    mAction = std::move(action);
}

bool LogCapture::waitFor(const std::string& text) {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, std::chrono::seconds(30), [&] {
        return std::any_of(mLines.begin(), mLines.end(), [&](const std::string& line) {
            return line.find(text) != std::string::npos;
        });
    });
}
