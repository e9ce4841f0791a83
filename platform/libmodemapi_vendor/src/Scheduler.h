#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

namespace sim {

using Milliseconds = std::chrono::milliseconds;

/** A delay for what is not to run while the process lives. */
constexpr Milliseconds NEVER = std::chrono::hours(24 * 365);

/**
 * Runs tasks when they are due, by their time and then in the order they were posted; with one
 * thread also one at a time. Tasks may post. Its threads run until the process ends, so it is never
 * destroyed: whoever makes one keeps it reachable and leaves it.
 */
class Scheduler {
public:
    explicit Scheduler(unsigned threads);
    ~Scheduler() = delete;
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    void post(Milliseconds delay, std::function<void()> task);

private:
    using Clock = std::chrono::steady_clock;

    std::function<void()> takeDue();

    std::mutex mMutex;
    std::condition_variable mChanged;
    uint64_t mSequence = 0;
    std::map<std::pair<Clock::time_point, uint64_t>, std::function<void()>> mTasks;
};

}  // namespace sim
