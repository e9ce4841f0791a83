#pragma once

#include <mutex>

#include "clients/QmiClient.h"

/** How one service binds the subscription of an instance. */
struct SubscriptionBinding {
    int (*bind)(int32_t instanceId);
    bool reportsCount;  ///< the log line "reach max %d times" tells the retries, not the limit
};

/**
 * Base of the clients whose service must be bound to the subscription of the instance before it
 * serves. A bind that fails is retried through the client's own queue, at once and up to a limit;
 * a request that finds the client unbound makes one attempt of its own. Once bound, a client
 * stays bound.
 *
 * Binding runs on the modem's event thread (connection) and on the handler thread (retries and
 * requests). The state has a lock, which is not held across the bind or a post.
 */
class SubscriptionClient : public QmiClient {
public:
    ClientState getState() const override;

protected:
    SubscriptionClient(const QmiService& service, const SubscriptionBinding& binding,
                       int instanceId, const std::shared_ptr<ModemResponseProxy>& responseProxy,
                       const std::shared_ptr<ModemIndicationProxy>& indicationProxy);

    /** Makes one attempt; when it fails, posts the next one, up to the limit. */
    void bindSubscription(int instanceId);

    int handleBindSubscriptionMessage(const MessagePtr& msg);

    /**
     * Step of `handle` before a request is served: while unbound, makes one attempt, and posts no
     * retry. Does nothing for the message that is a retry itself.
     */
    void rebindBeforeUse(const char* func, int msgId);

    /** For `serve`: 0 while bound and connected, else 4 after an error line. */
    Errno checkBound(const char* func) const;
    static constexpr Ready BOUND = static_cast<Ready>(&SubscriptionClient::checkBound);

    const int mInstanceId;

private:
    static constexpr int MAX_BIND_RETRIES = 20;

    bool isBound() const;

    const SubscriptionBinding& mBinding;
    mutable std::mutex mBindMutex;  ///< guards the two below
    int mBindRetries = 0;           ///< attempts posted since the last success
    bool mBound = false;
};
