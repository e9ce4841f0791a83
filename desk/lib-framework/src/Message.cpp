#include <framework/Desk.h>
#include <framework/Message.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include "MessageQueue.h"

namespace {

std::atomic<desk::Delivery> sDelivery{desk::Delivery::THREADS};

/** Messages that wait for desk::step(), in the order of their arrival. */
struct Steps {
    std::mutex mutex;
    std::deque<std::pair<const Handler*, std::shared_ptr<Message>>> waiting;

    static Steps& instance() {
        static Steps& steps = *new Steps;
        return steps;
    }

    bool push(const Handler* target, std::shared_ptr<Message> message) {
        std::lock_guard lock(mutex);
        const auto queued = std::count_if(waiting.begin(), waiting.end(),
                                          [&](const auto& entry) { return entry.first == target; });
        if (static_cast<size_t>(queued) >= MessageQueue::sLimit) {
            return false;
        }
        waiting.emplace_back(target, std::move(message));
        return true;
    }

    std::shared_ptr<Message> pop(uint64_t choice) {
        std::lock_guard lock(mutex);
        std::vector<const Handler*> targets;
        for (const auto& [target, message] : waiting) {
            if (std::find(targets.begin(), targets.end(), target) == targets.end()) {
                targets.push_back(target);
            }
        }
        if (targets.empty()) {
            return nullptr;
        }
        const Handler* chosen = targets[choice % targets.size()];
        const auto found = std::find_if(waiting.begin(), waiting.end(),
                                        [&](const auto& entry) { return entry.first == chosen; });
        std::shared_ptr<Message> message = std::move(found->second);
        waiting.erase(found);
        return message;
    }
};

}  // namespace

Handler::Handler() : mQueue(std::make_shared<MessageQueue>()) {
}

Handler::~Handler() {
    mQueue->close();
}

std::shared_ptr<Message> Message::obtain(int id, std::shared_ptr<Handler> target,
                                         std::shared_ptr<Param> param,
                                         std::shared_ptr<void> extra) {
    try {
        return std::make_shared<Message>(Token{}, id, std::move(target), std::move(param),
                                         std::move(extra));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

Message::Message(Token, int id, std::shared_ptr<Handler> target, std::shared_ptr<Param> param,
                 std::shared_ptr<void> extra)
    : mId(id), mTarget(std::move(target)), mParam(std::move(param)), mExtra(std::move(extra)) {
}

void Message::deliver(std::shared_ptr<Message> message) {
    Handler& target = *message->mTarget;
    target.handle(std::move(message));
}

int Message::dispatch() {
    try {
        switch (sDelivery.load()) {
            case desk::Delivery::THREADS:
                return mTarget->mQueue->push(shared_from_this()) ? 0 : desk::DISPATCH_QUEUE_FULL;
            case desk::Delivery::STEPS:
                return Steps::instance().push(mTarget.get(), shared_from_this())
                               ? 0
                               : desk::DISPATCH_QUEUE_FULL;
            case desk::Delivery::CALLER:
                deliver(shared_from_this());
                return 0;
        }
    } catch (const std::bad_alloc&) {
        return ERRNO_NO_MEMORY;
    } catch (const std::system_error&) {  // no thread to be had
        return ERRNO_FAILED;
    }
    return ERRNO_FAILED;
}

namespace desk {

void setDelivery(Delivery delivery) {
    sDelivery = delivery;
}

size_t pendingMessages() {
    std::lock_guard lock(Steps::instance().mutex);
    return Steps::instance().waiting.size();
}

bool step(uint64_t choice) {
    std::shared_ptr<Message> message = Steps::instance().pop(choice);
    if (!message) {
        return false;
    }
    Message::deliver(std::move(message));
    return true;
}

void setQueueLimit(size_t messages) {
    MessageQueue::sLimit = messages;
}

}  // namespace desk
