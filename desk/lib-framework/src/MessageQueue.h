#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include <framework/Message.h>

/**
 * The messages of one handler, in order, and the thread that delivers them. The thread shares the
 * queue, so that the handler may go at any moment, on that thread too; it ends after `close`.
 */
class MessageQueue : public std::enable_shared_from_this<MessageQueue> {
public:
    static constexpr size_t CAPACITY = 1024;

    /** With more messages waiting, the thread that reads a client's calls is held up. */
    static constexpr size_t BUSY = 64;

    /** A handler that takes no message for so long is not waited for. */
    static constexpr auto PATIENCE = std::chrono::milliseconds(20);

    /**
     * Takes a message without allocating; false when the queue is full. The first one starts the
     * thread.
     */
    bool push(std::shared_ptr<Message> message);

    /** Ends the thread once the queue is empty; a queued message keeps its handler alive. */
    void close();

    static std::atomic<size_t> sLimit;

private:
    void deliver();
    std::shared_ptr<Message> pop();
    void waitForRoom(std::unique_lock<std::mutex>& lock);

    std::mutex mMutex;  ///< guards what follows
    std::condition_variable mArrived;
    std::condition_variable mTaken;
    std::array<std::shared_ptr<Message>, CAPACITY> mRing;
    uint64_t mFirst = 0;  ///< number of messages taken so far
    size_t mCount = 0;
    uint64_t mStuckAt = UINT64_MAX;  ///< `mFirst` when somebody waited in vain
    bool mStarted = false;
    bool mClosed = false;
};
