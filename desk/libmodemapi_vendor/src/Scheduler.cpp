#include "Scheduler.h"

#include <system_error>
#include <thread>

namespace fake {

bool Scheduler::takesMore() {
    std::lock_guard lock(mMutex);
    startThreads();
    return mThreads > 0 && mTasks.size() < PENDING_MAX;
}

/** With the lock held. If the system refuses a thread, the next call tries again. */
void Scheduler::startThreads() {
    try {
        for (; mThreads < mThreadsWanted; ++mThreads) {
            std::thread(&Scheduler::run, this).detach();
        }
    } catch (const std::system_error&) {
        return;
    }
}

void Scheduler::run() {
    for (;;) {
        takeDue()();
    }
}

void Scheduler::post(Milliseconds delay, std::function<void()> task) {
    std::lock_guard lock(mMutex);
    startThreads();
    mTasks.emplace(std::pair(Clock::now() + delay, ++mSequence), std::move(task));
    // All: a single wake-up may go to a thread that already waits for an earlier task.
    mChanged.notify_all();
}

std::function<void()> Scheduler::takeDue() {
    std::unique_lock lock(mMutex);
    for (;;) {
        if (mTasks.empty()) {
            mChanged.wait(lock);
            continue;
        }
        const auto first = mTasks.begin();
        const Clock::time_point due = first->first.first;
        if (due <= Clock::now()) {
            auto task = std::move(first->second);
            mTasks.erase(first);
            return task;
        }
        mChanged.wait_until(lock, due);
    }
}

}  // namespace fake
