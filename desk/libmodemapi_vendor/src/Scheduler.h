#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

namespace fake {

using Milliseconds = std::chrono::milliseconds;

/** Longer than any process runs: the task stays pending. */
constexpr Milliseconds NEVER = std::chrono::hours(24 * 365);

/** Pending tasks of one scheduler above which takesMore() returns false. */
constexpr size_t PENDING_MAX = 4096;

/**
 * Runs tasks when they are due, ordered by due time and then by the order of posting; with one
 * thread also one at a time. Tasks may post. Its threads run until the process ends, so it is never
 * destroyed.
 */
class Scheduler {
public:
    /** Throws std::system_error when the system has no threads for it. */
    explicit Scheduler(unsigned threads);
    ~Scheduler() = delete;
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    /**
     * False when PENDING_MAX tasks are pending. A request that would post a task is refused then.
     * post() itself takes every task, so that a change of the modem's own, such as a service going
     * down, is never lost.
     */
    bool takesMore();

    void post(Milliseconds delay, std::function<void()> task);

private:
    using Clock = std::chrono::steady_clock;

    void run();

    std::mutex mMutex;  ///< guards what follows; not held while a task runs
    std::condition_variable mChanged;
    uint64_t mSequence = 0;
    std::map<std::pair<Clock::time_point, uint64_t>, std::function<void()>> mTasks;
};

}  // namespace fake
