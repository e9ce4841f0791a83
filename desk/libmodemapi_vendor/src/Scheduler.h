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

/** A delay that no process outlives: the task never runs. */
constexpr Milliseconds NEVER = std::chrono::hours(24 * 365);

/** Tasks that may wait in one scheduler before takesMore() says no. */
constexpr size_t WAITING_MAX = 4096;

/** Those of one client that may wait in all schedulers: room for others is left. */
constexpr size_t WAITING_SHARE = WAITING_MAX / 4 * 3;

/**
 * Runs tasks when they are due, by their time and then in the order they were posted; with one
 * thread also one at a time. Tasks may post. Its threads run until the process ends, so it is never
 * destroyed.
 */
class Scheduler {
public:
    explicit Scheduler(unsigned threads) : mThreadsWanted(threads) {}
    ~Scheduler() = delete;
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    /**
     * False when WAITING_MAX tasks wait, or WAITING_SHARE of the client that this thread works for,
     * or when the system has no thread for it. A request that
     * would post a task is refused then; post() itself always takes the task, so that a change of
     * the modem's own, such as a service going down, is never lost.
     */
    bool takesMore();

    void post(Milliseconds delay, std::function<void()> task);

    /** Posts what a client waits for; it counts as the client's until it has run. */
    void owe(Milliseconds delay, std::function<void()> task);

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
    bool mRush = false;  ///< more than WAITING_MAX / 2 tasks waited at once since nothing waited
    std::condition_variable mChanged;
    uint64_t mSequence = 0;
    std::map<std::pair<Clock::time_point, uint64_t>, std::function<void()>> mTasks;
};

}  // namespace fake
