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

/** Tasks that may wait in one scheduler before it asks to be spared. */
constexpr size_t WAITING_MAX = 4096;

/**
 * Runs tasks when they are due, by their time and then in the order they were posted; with one
 * thread also one at a time. Tasks may post. Its threads run until the process ends, so it is never
 * destroyed: whoever makes one keeps it reachable and leaves it.
 */
class Scheduler {
public:
    explicit Scheduler(unsigned threads) : mThreadsWanted(threads) {}
    ~Scheduler() = delete;
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    /**
     * False when WAITING_MAX tasks wait, or when the system gives it no thread. Whoever posts on
     * somebody's request asks this first and refuses the request.
     */
    bool takesMore();

    void post(Milliseconds delay, std::function<void()> task);

private:
    using Clock = std::chrono::steady_clock;

    void run();
    std::function<void()> takeDue();
    void startThreads();
    /** True once when nothing waits any more after many had waited. */
    bool isRushOver();

    const unsigned mThreadsWanted;
    std::mutex mMutex;  ///< guards what follows; not held while a task runs
    unsigned mThreads = 0;
    bool mRush = false;  ///< half of what may wait has been waiting
    std::condition_variable mChanged;
    uint64_t mSequence = 0;
    std::map<std::pair<Clock::time_point, uint64_t>, std::function<void()>> mTasks;
};

}  // namespace sim
