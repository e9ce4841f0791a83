#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>

#include <semaphore.h>

#include <framework/Message.h>

#include "runtime/Caller.h"

/**
 * The messages of one handler, in order, and the thread that delivers them. The thread shares the
 * queue, so that the handler may go at any moment, on that thread too; it ends after `close`.
 */
class MessageQueue : public std::enable_shared_from_this<MessageQueue> {
public:
    static constexpr size_t CAPACITY = 1024;

    /** Messages of one client that may wait in all queues together: room for others is left. */
    static constexpr size_t SHARE = CAPACITY / 4 * 3;

    MessageQueue() { sem_init(&mArrived, 0, 0); }
    ~MessageQueue() { sem_destroy(&mArrived); }
    MessageQueue(const MessageQueue&) = delete;
    MessageQueue& operator=(const MessageQueue&) = delete;

    /**
     * Takes a message without allocating; false when the queue is full, or its client has its
     * share. The first one starts the thread.
     */
    bool push(std::shared_ptr<Message> message);

    /** Ends the thread once the queue is empty; a queued message keeps its handler alive. */
    void close();

    static std::atomic<size_t> sLimit;

private:
    /** A message, and the client whose call made it; null when no client's did. */
    struct Entry {
        std::shared_ptr<Message> message;
        std::shared_ptr<runtime::Caller> caller;
    };

    void deliver();
    Entry pop();

    std::mutex mMutex;
    sem_t mArrived;  ///< counts as many as messages that wait, and one more when closed
    std::array<Entry, CAPACITY> mRing;
    size_t mFirst = 0;
    size_t mCount = 0;
    bool mStarted = false;
};
