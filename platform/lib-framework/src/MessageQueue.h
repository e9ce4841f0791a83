#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
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

    /** Takes a message without allocating; false when full. The first one starts the thread. */
    bool push(std::shared_ptr<Message> message);

    /** Ends the thread once the queue is empty; a queued message keeps its handler alive. */
    void close();

    static std::atomic<size_t> sLimit;

private:
    void deliver();
    std::shared_ptr<Message> pop();

    std::mutex mMutex;
    std::condition_variable mArrived;
    std::array<std::shared_ptr<Message>, CAPACITY> mRing;
    size_t mFirst = 0;
    size_t mCount = 0;
    bool mStarted = false;
    bool mClosed = false;
};
