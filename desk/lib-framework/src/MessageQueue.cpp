#include "MessageQueue.h"

#include <hidl/Transport.h>

#include <algorithm>
#include <thread>
#include <utility>

std::atomic<size_t> MessageQueue::sLimit{CAPACITY};

bool MessageQueue::push(std::shared_ptr<Message> message) {
    std::unique_lock lock(mMutex);
    if (hal::servesClient()) {
        waitForRoom(lock);
    }
    if (mCount >= std::min(CAPACITY, sLimit.load())) {
        return false;
    }
    if (!mStarted) {
        std::thread([self = shared_from_this()] { self->deliver(); }).detach();
        mStarted = true;
    }
    mRing[(mFirst + mCount++) % CAPACITY] = std::move(message);
    mArrived.notify_one();
    return true;
}

/** Back-pressure: a client that sends faster than the handler works is read more slowly. */
void MessageQueue::waitForRoom(std::unique_lock<std::mutex>& lock) {
    const uint64_t before = mFirst;
    if (mCount > BUSY && mStuckAt != before &&
        !mTaken.wait_for(lock, PATIENCE, [this] { return mCount <= BUSY; }) && mFirst == before) {
        mStuckAt = before;
    }
}

void MessageQueue::close() {
    std::lock_guard lock(mMutex);
    mClosed = true;
    mArrived.notify_one();
}

void MessageQueue::deliver() {
    while (std::shared_ptr<Message> message = pop()) {
        Message::deliver(std::move(message));
    }
}

/** The next message; null when the queue was closed. */
std::shared_ptr<Message> MessageQueue::pop() {
    std::unique_lock lock(mMutex);
    mArrived.wait(lock, [this] { return mCount != 0 || mClosed; });
    if (mCount == 0) {
        return nullptr;
    }
    --mCount;
    mTaken.notify_one();
    return std::move(mRing[mFirst++ % CAPACITY]);
}
