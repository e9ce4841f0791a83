#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

namespace runtime {

/**
 * A client, as who causes work: counts what its calls have made wait in the queues of the process.
 * Each queue takes only a share from one caller, and the client's own reader waits while too much
 * is under way, so that who asks too fast notices it himself and alone. Work carries its caller
 * along: whoever queues some asks for `current`, and who does it later makes that a `Scope` of his
 * thread. Any thread may call any method. Shared by the libraries of a process, hence visible in
 * each of them.
 */
class __attribute__((visibility("default"))) Caller {
public:
    enum What : size_t {
        MESSAGES,  ///< that wait for a handler
        ANSWERS,   ///< that the modem has still to give
        BYTES,     ///< that peers, not only this one, have not taken yet
        WHATS,
    };

    void add(What what, size_t count = 1) { mCounts[what].added += count; }

    void giveBack(What what, size_t count = 1) {
        mCounts[what].done += count;
        if (mIsWaiting) {
            std::lock_guard lock(mLock);
            mGivenBack.notify_all();
        }
    }

    size_t count(What what) const {
        const size_t done = mCounts[what].done;  // first, so that it is never above what was added
        return mCounts[what].added - done;
    }

    /**
     * Where there are more, waits until half as many are left, or none has been given back for that
     * long; after that it does not wait before one is. For one thread, the client's reader.
     */
    void waitUntil(What what, size_t most, std::chrono::milliseconds patience) {
        Counts& counts = mCounts[what];
        if (count(what) <= most || counts.done == counts.stoodStillAt) {
            return;
        }
        std::unique_lock lock(mLock);
        mIsWaiting = true;
        for (bool goesOn = true; goesOn;) {
            counts.stoodStillAt = counts.done;
            const bool isEnough =
                    mGivenBack.wait_for(lock, patience, [&] { return count(what) <= most / 2; });
            goesOn = !isEnough && counts.done != counts.stoodStillAt;
            if (isEnough) {
                counts.stoodStillAt = NEVER;
            }
        }
        mIsWaiting = false;
    }

    /** Of the work that this thread does; null when no client asked for it. */
    static const std::shared_ptr<Caller>& current() { return state(); }

    /** This thread works for a caller until the end of the scope. */
    class Scope {
    public:
        explicit Scope(std::shared_ptr<Caller> caller)
            : mBefore(std::exchange(state(), std::move(caller))) {}
        ~Scope() { state() = std::move(mBefore); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        std::shared_ptr<Caller> mBefore;
    };

private:
    static constexpr size_t NEVER = ~size_t{0};

    struct Counts {
        std::atomic<size_t> added{0};
        std::atomic<size_t> done{0};
        size_t stoodStillAt = NEVER;  ///< the reader's: `done` when it waited in vain
    };

    static std::shared_ptr<Caller>& state() {
        static thread_local std::shared_ptr<Caller> state;
        return state;
    }

    std::array<Counts, WHATS> mCounts;
    std::atomic<bool> mIsWaiting{false};
    std::mutex mLock;
    std::condition_variable mGivenBack;
};

}  // namespace runtime
