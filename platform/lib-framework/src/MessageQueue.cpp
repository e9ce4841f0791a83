#include "MessageQueue.h"

#include <algorithm>
#include <thread>
#include <utility>

std::atomic<size_t> MessageQueue::sLimit{CAPACITY};

bool MessageQueue::push(std::shared_ptr<Message> message) {
    std::unique_lock lock(mMutex);
    if (mCount >= std::min(CAPACITY, sLimit.load())) {
        return false;
    }
    if (!mStarted) {
        std::thread([self = shared_from_this()] { self->deliver(); }).detach();
        mStarted = true;
    }
    mRing[(mFirst + mCount) % CAPACITY] = std::move(message);
    const bool wasEmpty = mCount++ == 0;
    lock.unlock();
    if (wasEmpty) {
        mArrived.notify_one();
    }
    return true;
}

void MessageQueue::close() {
    {
        std::lock_guard lock(mMutex);
        mClosed = true;
    }
    mArrived.notify_one();
}

void MessageQueue::deliver() {
    while (std::shared_ptr<Message> message = pop()) {
        Message::deliver(std::move(message));
    }
}

std::shared_ptr<Message> MessageQueue::pop() {
    std::unique_lock lock(mMutex);
    mArrived.wait(lock, [this] { return mCount > 0 || mClosed; });
    if (mCount == 0) {
        return nullptr;
    }
    std::shared_ptr<Message> message = std::move(mRing[mFirst]);
    mFirst = (mFirst + 1) % CAPACITY;
    --mCount;
    return message;
}
