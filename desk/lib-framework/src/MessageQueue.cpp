#include "MessageQueue.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "runtime/Burst.h"

using runtime::Burst;
using runtime::Caller;

std::atomic<size_t> MessageQueue::sLimit{CAPACITY};

bool MessageQueue::push(std::shared_ptr<Message> message) {
    const std::shared_ptr<Caller>& caller = Caller::current();
    if (caller != nullptr && caller->count(Caller::MESSAGES) >= SHARE) {
        return false;
    }
    std::unique_lock lock(mMutex);
    if (mCount >= std::min(CAPACITY, sLimit.load())) {
        return false;
    }
    if (!mStarted) {
        std::thread([self = shared_from_this()] { self->deliver(); }).detach();
        mStarted = true;
    }
    if (caller != nullptr) {
        caller->add(Caller::MESSAGES);
    }
    mRing[(mFirst + mCount++) % CAPACITY] = {std::move(message), caller};
    lock.unlock();
    sem_post(&mArrived);
    return true;
}

void MessageQueue::close() {
    sem_post(&mArrived);
}

void MessageQueue::deliver() {
    for (Entry entry = pop(); entry.message != nullptr; entry = pop()) {
        const Caller::Scope scope(std::move(entry.caller));
        Message::deliver(std::move(entry.message));
    }
    Burst::end();
}

MessageQueue::Entry MessageQueue::pop() {
    while (sem_trywait(&mArrived) != 0) {
        Burst::end();
        if (sem_wait(&mArrived) == 0) {
            break;
        }
    }
    std::unique_lock lock(mMutex);
    if (mCount == 0) {
        return {};  // closed
    }
    Entry entry = std::move(mRing[mFirst]);
    mFirst = (mFirst + 1) % CAPACITY;
    const bool more = --mCount > 0;
    lock.unlock();
    Burst::goOn(more);
    if (entry.caller != nullptr) {
        entry.caller->giveBack(Caller::MESSAGES);
    }
    return entry;
}
