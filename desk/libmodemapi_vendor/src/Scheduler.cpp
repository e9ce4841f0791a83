#include "Scheduler.h"

#include <malloc.h>

#include <system_error>
#include <thread>
#include <utility>

#include "runtime/Caller.h"

using runtime::Caller;

namespace fake {

bool Scheduler::takesMore() {
    if (const auto& caller = Caller::current();
        caller != nullptr && caller->count(Caller::ANSWERS) >= WAITING_SHARE) {
        return false;
    }
    std::lock_guard lock(mMutex);
    startThreads();
    return mThreads > 0 && mTasks.size() < WAITING_MAX;
}

/** With the lock held. A thread that the system refuses now is tried again at the next call. */
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
        if (isRushOver()) {
            malloc_trim(0);  // gives the memory of tasks and answers back to the system
        }
    }
}

bool Scheduler::isRushOver() {
    std::lock_guard lock(mMutex);
    return mTasks.empty() && std::exchange(mRush, false);
}

void Scheduler::post(Milliseconds delay, std::function<void()> task) {
    std::lock_guard lock(mMutex);
    startThreads();
    mTasks.emplace(std::pair(Clock::now() + delay, ++mSequence), std::move(task));
    mRush = mRush || mTasks.size() > WAITING_MAX / 2;
    // All: a single wake-up may go to a thread that already waits for an earlier task.
    mChanged.notify_all();
}

void Scheduler::owe(Milliseconds delay, std::function<void()> task) {
    if (const auto& caller = Caller::current(); caller != nullptr) {
        caller->add(Caller::ANSWERS);
        task = [caller, task = std::move(task)] {
            const Caller::Scope scope(caller);
            task();
            caller->giveBack(Caller::ANSWERS);
        };
    }
    post(delay, std::move(task));
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
