#pragma once

#include <memory>

#include <framework/Errno.h>
#include <framework/Handler.h>
#include <framework/Param.h>

/** One request on its way to a handler: a number that the handler knows, and a record. */
class Message : public std::enable_shared_from_this<Message> {
    struct Token {};

public:
    /**
     * Makes a message in one allocation.
     *
     * @param target the handler that `dispatch` delivers to; kept alive by the message
     * @param param the record, may be empty
     * @param extra kept alive by the message, may be empty
     * @return empty when there is no memory
     */
    static std::shared_ptr<Message> obtain(int id, std::shared_ptr<Handler> target,
                                           std::shared_ptr<Param> param,
                                           std::shared_ptr<void> extra);

    /** For `obtain` alone. */
    Message(Token, int id, std::shared_ptr<Handler> target, std::shared_ptr<Param> param,
            std::shared_ptr<void> extra);

    int getId() const { return mId; }
    std::shared_ptr<Param> getParam() const { return mParam; }

    /**
     * Queues the message to its target; callable from any thread.
     *
     * @return 0, or nonzero when the target's queue is full or there is no memory; nothing is
     *         queued then
     */
    int dispatch();

    /** Runs the target's `handle` on this thread; for the framework. */
    static void deliver(std::shared_ptr<Message> message);

private:
    const int mId;
    const std::shared_ptr<Handler> mTarget;
    const std::shared_ptr<Param> mParam;
    const std::shared_ptr<void> mExtra;
};
