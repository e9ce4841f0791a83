#pragma once

#include <memory>

#include <framework/RttiContext.h>

class Message;
class MessageQueue;

/**
 * Receives messages, one at a time and in the order in which they were dispatched, on a thread of
 * its own that starts with the first message. Must be owned by a shared pointer.
 */
class Handler : public RttiContext, public std::enable_shared_from_this<Handler> {
public:
    Handler();
    ~Handler() override;

    /**
     * Serves one message.
     *
     * @return 0 on success; the framework does not look at the result
     */
    virtual int handle(std::shared_ptr<Message> msg) = 0;

private:
    friend class Message;

    const std::shared_ptr<MessageQueue> mQueue;
};
