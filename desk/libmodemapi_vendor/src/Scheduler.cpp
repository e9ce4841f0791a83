#include "Scheduler.h"

#include <thread>

namespace fake {

Scheduler::Scheduler(unsigned threads) {
    for (unsigned i = 0; i < threads; ++i) {
        std::thread(&Scheduler::run, this).detach();
    }
}

bool Scheduler::takesMore() {
    std::lock_guard lock(mMutex);
    return mTasks.size() < PENDING_MAX;
}

void Scheduler::run() {
    for (;;) {
        takeDue()();
    }
}

void Scheduler::post(Milliseconds delay, std::function<void()> task) {
    std::lock_guard lock(mMutex);
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
