#include "clients/SubscriptionClient.h"

#include "params/MessageIds.h"

SubscriptionClient::SubscriptionClient(const QmiService& service,
                                       const SubscriptionBinding& binding, int instanceId,
                                       const std::shared_ptr<ModemResponseProxy>& responseProxy,
                                       const std::shared_ptr<ModemIndicationProxy>& indicationProxy)
    : QmiClient(service, responseProxy, indicationProxy),
      mInstanceId(instanceId),
      mBinding(binding) {
}

void SubscriptionClient::bindSubscription(int instanceId) {
    const bool bound = mBinding.bind(instanceId) == 0;
    std::unique_lock lock(mBindMutex);
    if (bound) {
        mBindRetries = 0;
        mBound = true;
        return;
    }
    const int before = mBindRetries;
    const bool retry = before < MAX_BIND_RETRIES;
    // Counted before the post: the next attempt may run before this function goes on.
    mBindRetries += retry ? 1 : 0;
    lock.unlock();

    LOG_E("%s: failed to bind %s QMI subscription for instance id %d", __func__, mService.name,
          instanceId);
    if (!retry) {
        LOG_E("%s: retry binding %s QMI subscription with instance id %d reach max %d times",
              __func__, mService.name, instanceId,
              mBinding.reportsCount ? before : MAX_BIND_RETRIES);
        return;
    }
    sendRequest(INTERNAL_SERIAL, SubscriptionMessage::BIND_SUBSCRIPTION, instanceId);
    LOG_I("%s: retry binding %s QMI subscription with instance id %d for %d times, max %d times",
          __func__, mService.name, instanceId, before + 1, MAX_BIND_RETRIES);
}

int SubscriptionClient::handleBindSubscriptionMessage(const MessagePtr& msg) {
    const auto* request = takeRecord<SerialIntParam>(__func__, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    bindSubscription(request->value);
    return ERRNO_SUCCESS;
}

void SubscriptionClient::rebindBeforeUse(const char* func, int msgId) {
    if (msgId <= SubscriptionMessage::BIND_SUBSCRIPTION || isBound()) {
        return;
    }
    LOG_I("%s: need to rebind sub first", func);
    {
        std::lock_guard lock(mBindMutex);
        mBindRetries = MAX_BIND_RETRIES;
    }
    bindSubscription(mInstanceId);
}

Errno SubscriptionClient::checkBound(const char* func) const {
    if (!isBound()) {
        LOG_E("%s: bind sub failed", func);
        return ERRNO_NOT_CONNECTED;
    }
    return checkConnected(func);
}

ClientState SubscriptionClient::getState() const {
    ClientState state = QmiClient::getState();
    std::lock_guard lock(mBindMutex);
    state.bound = mBound;
    state.bindRetries = mBindRetries;
    return state;
}

bool SubscriptionClient::isBound() const {
    std::lock_guard lock(mBindMutex);
    return mBound;
}
