#include "Writer.h"

#include <hidl/Transport.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <thread>

#include "Outgoing.h"

namespace hal::writer {

namespace {

using Clock = Outgoing::Clock;

/** At exit, what is kept has as long to get out, in all. */
constexpr auto EXIT_LIMIT = std::chrono::milliseconds(1000);

std::atomic<ptrdiff_t> sKept{0};

class Writer {
public:
    /** Throws std::system_error. */
    Writer() : mWake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (mWake.get() < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
        std::thread([this] { run(); }).detach();
    }

    void add(std::shared_ptr<Outgoing> outgoing) {
        {
            std::lock_guard lock(mLock);
            mAdded.push_back(std::move(outgoing));
            mIdle = false;
        }
        wake();
    }

    void hold(std::shared_ptr<Outgoing> outgoing) {
        bool isFirst = false;
        {
            std::lock_guard lock(mLock);
            isFirst = mHeld.empty();
            mHeld.push_back(std::move(outgoing));
            mIdle = false;
        }
        if (isFirst) {
            wake();
        }
    }

    void wake() { (void)eventfd_write(mWake.get(), 1); }

    void waitUntilIdle(std::chrono::milliseconds limit) {
        std::unique_lock lock(mLock);
        mBecameIdle.wait_for(lock, limit, [this] { return mIdle; });
    }

private:
    [[noreturn]] void run() {
        for (;;) {
            waitForWork();
            sendHeld();
            takeAdded();
            cutLongest();
            const auto done = [](const auto& outgoing) { return !serve(*outgoing); };
            mServed.erase(std::remove_if(mServed.begin(), mServed.end(), done), mServed.end());
            noteIdle();
        }
    }

    /** Until a socket takes bytes, a peer is late or there is more to look after. */
    void waitForWork() {
        std::vector<pollfd> sockets{{mWake.get(), POLLIN, 0}};
        int timeout = -1;
        if (!mServed.empty()) {
            Clock::time_point due = Clock::time_point::max();
            for (const auto& outgoing : mServed) {
                sockets.push_back({outgoing->socket(), POLLOUT, 0});
                due = std::min(due, outgoing->due());
            }
            // At least so often, since the system calls a socket writable when most of it is free.
            const auto soon = std::min(due, Clock::now() + stallLimit() / 4) - Clock::now();
            timeout = std::max(1, static_cast<int>(soon / std::chrono::milliseconds(1)));
        }
        {
            std::lock_guard lock(mLock);
            if (!mHeld.empty()) {
                timeout = static_cast<int>(HOLD_LIMIT.count());
            }
        }
        poll(sockets.data(), sockets.size(), timeout);
        eventfd_t wakes = 0;
        (void)eventfd_read(mWake.get(), &wakes);
    }

    /** All that has been held since the last time when that was long enough ago. */
    void sendHeld() {
        std::vector<std::shared_ptr<Outgoing>> held;
        {
            std::lock_guard lock(mLock);
            const auto now = Clock::now();
            if (mHeld.empty()) {
                mHeldSince.reset();
            } else if (!mHeldSince) {
                mHeldSince = now;
            } else if (now - *mHeldSince >= HOLD_LIMIT) {
                held.swap(mHeld);
                mHeldSince.reset();
            }
        }
        for (const auto& outgoing : held) {
            outgoing->flushHeld();
        }
    }

    void takeAdded() {
        std::lock_guard lock(mLock);
        mServed.insert(mServed.end(), mAdded.begin(), mAdded.end());
        mAdded.clear();
    }

    void noteIdle() {
        std::lock_guard lock(mLock);
        mIdle = mServed.empty() && mAdded.empty() && mHeld.empty();
        if (mIdle) {
            mBecameIdle.notify_all();
        }
    }

    void cutLongest() {
        const auto shorter = [](const auto& a, const auto& b) {
            return a->waiting() < b->waiting();
        };
        if (sKept > static_cast<ptrdiff_t>(MAX_OUTGOING_IN_ALL) && !mServed.empty()) {
            (*std::max_element(mServed.begin(), mServed.end(), shorter))
                    ->cut("peer has left more untaken than any other, and all together more than " +
                          std::to_string(MAX_OUTGOING_IN_ALL) + " bytes");
            wake();  // one may not be enough
        }
    }

    static bool serve(Outgoing& outgoing) {
        if (!outgoing.flush()) {
            return false;
        }
        if (outgoing.due() > Clock::now()) {
            return true;
        }
        outgoing.cut(stallReason("peer has not taken a message"));
        return outgoing.flush();
    }

    const runtime::UniqueFd mWake;
    // The thread's own.
    std::vector<std::shared_ptr<Outgoing>> mServed;
    std::optional<Clock::time_point> mHeldSince;

    std::mutex mLock;
    std::vector<std::shared_ptr<Outgoing>> mAdded;
    std::vector<std::shared_ptr<Outgoing>> mHeld;
    bool mIdle = true;
    std::condition_variable mBecameIdle;
};

// Never destroyed, since its thread runs to the very end of the process.
std::mutex& lock() {
    static std::mutex& lock = *new std::mutex;
    return lock;
}
std::atomic<Writer*> sWriter{nullptr};

Writer& instance() {
    if (Writer* writer = sWriter; writer != nullptr) {
        return *writer;
    }
    std::lock_guard guard(lock());
    if (sWriter == nullptr) {
        sWriter = new Writer;
        // A child has no writer thread of its parent's.
        pthread_atfork(nullptr, nullptr, [] { sWriter = nullptr; });
        std::atexit([] {
            if (Writer* writer = sWriter; writer != nullptr) {
                writer->waitUntilIdle(EXIT_LIMIT);
            }
        });
    }
    return *sWriter;
}

}  // namespace

void add(std::shared_ptr<Outgoing> outgoing) {
    instance().add(std::move(outgoing));
}

void hold(std::shared_ptr<Outgoing> outgoing) {
    instance().hold(std::move(outgoing));
}

void countKept(ptrdiff_t bytes) {
    const ptrdiff_t kept = sKept += bytes;
    if (Writer* writer = sWriter;
        writer != nullptr && bytes > 0 && kept > static_cast<ptrdiff_t>(MAX_OUTGOING_IN_ALL)) {
        writer->wake();
    }
}

}  // namespace hal::writer
