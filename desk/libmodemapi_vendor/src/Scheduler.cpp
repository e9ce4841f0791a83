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
    for (std::unique_lock lock(mMutex);;) {
        const auto first = mTasks.begin();
        if (first == mTasks.end()) {
            mChanged.wait(lock);
        } else if (const Clock::time_point due = first->first.first; due > Clock::now()) {
            mChanged.wait_until(lock, due);
        } else {
            const auto node = mTasks.extract(first);
            lock.unlock();
            node.mapped()();
            lock.lock();
        }
    }
}

void Scheduler::post(Milliseconds delay, std::function<void()> task) {
    std::lock_guard lock(mMutex);
    mTasks.emplace(std::pair(Clock::now() + delay, ++mSequence), std::move(task));
    // All: a single wake-up may go to a thread that already waits for an earlier task.
    mChanged.notify_all();
}

}  // namespace fake
