#include "clients/QmiClient.h"

#include <new>

#include <framework/Param.h>

int convertModemAPIResultToOX(modem_api_result_type result) {
    switch (result) {
        case MODEM_API_RESULT_SUCCESS:
            return ERRNO_SUCCESS;
        case MODEM_API_RESULT_INVALID_PARAM:
            return ERRNO_INVALID_PARAM;
        case MODEM_API_RESULT_UNSUPPORTED:
            return ERRNO_UNSUPPORTED;
        default:
            return ERRNO_FAILED;
    }
}

QmiClient::QmiClient(const QmiService& service,
                     const std::shared_ptr<ModemResponseProxy>& responseProxy,
                     const std::shared_ptr<ModemIndicationProxy>& indicationProxy)
    : mService(service), mResponseProxy(responseProxy), mIndicationProxy(indicationProxy) {
}

QmiClient::~QmiClient() = default;

void QmiClient::onConnected() {
    LOG_I("QMI client is connected, nothing to do");
}

int QmiClient::setup() {
    if (modem_api_init_qmi_connection(mService.type, 0) != 0) {
        LOG_E("%s: failed to setup %s QMI notifier", __func__, mService.name);
        return ERRNO_FAILED;
    }
    LOG_I("%s: %s QMI notifier setup completed", __func__, mService.name);
    return ERRNO_SUCCESS;
}

int QmiClient::release() {
    if (modem_api_release_qmi_connection(mService.type) != 0) {
        LOG_E("%s: failed to release %s QMI client or notifier", __func__, mService.name);
        return ERRNO_FAILED;
    }
    LOG_I("%s: %s QMI client and notifier released", __func__, mService.name);
    return ERRNO_SUCCESS;
}

void QmiClient::setConnectionStatus(bool connected) {
    mConnected = connected;
    if (connected) {
        onConnected();
    }
}

ClientState QmiClient::getState() const {
    ClientState state;
    state.connected = isConnected();
    state.taken = mTaken.load(std::memory_order_relaxed);
    state.answered = mAnswered.load(std::memory_order_relaxed);
    state.refused = mRefused.load(std::memory_order_relaxed);
    return state;
}

int QmiClient::countAnswer(int result) {
    if (result == ERRNO_SUCCESS) {
        mAnswered.fetch_add(1, std::memory_order_relaxed);
    }
    return result;
}

void QmiClient::logConnected(const char* func) const {
    LOG_I("%s: %s QMI client is connected", func, mService.name);
}

int QmiClient::sendRequest(int serial, int msgId) {
    return post<SerialVoidParam>(PostTexts::BY_ID, __func__, msgId, serial);
}

int QmiClient::sendRequest(int serial, int msgId, int value) {
    return post<SerialIntParam>(PostTexts::BY_ID, __func__, msgId, serial, value);
}

int QmiClient::sendRequest(int serial, int msgId, unsigned int value) {
    return post<SerialUintParam>(PostTexts::BY_ID, __func__, msgId, serial, value);
}

int QmiClient::sendRequest(int serial, int msgId, bool value) {
    return post<SerialBoolParam>(PostTexts::BY_ID, __func__, msgId, serial, value);
}

int QmiClient::sendRequest(int serial, int msgId, unsigned char value) {
    return post<SerialByteParam>(PostTexts::BY_ID, __func__, msgId, serial, value);
}

int QmiClient::sendRequest(int serial, int msgId, const std::string& value) {
    return post<SerialStringParam>(PostTexts::BY_ID, __func__, msgId, serial, value);
}

int QmiClient::sendRequest(int serial, int msgId, const std::vector<uint8_t>& value) {
    return post<SerialByteArrayParam>(PostTexts::BY_ID, __func__, msgId, serial, value);
}

int QmiClient::postVoid(const char* func, int msgId, int serial) {
    LOG_I("%s: serial = %d", func, serial);
    return post<SerialVoidParam>(PostTexts::BY_ID, func, msgId, serial);
}

int QmiClient::postRecord(PostTexts texts, const char* func, int msgId, int serial,
                          std::shared_ptr<Param> record) {
    const MessagePtr msg = Message::obtain(msgId, shared_from_this(), std::move(record), nullptr);
    if (!msg) {
        return refusePost(texts, func, msgId);
    }
    const int result = msg->dispatch();
    if (result == 0) {
        return ERRNO_SUCCESS;
    }
    switch (texts) {
        case PostTexts::BY_ID:
            LOG_E("Failed to dispatch msg %d, serial = %d", msgId, serial);
            break;
        case PostTexts::BY_NAME:
            LOG_E("%s: failed to dispatch msg, serial = %d", func, serial);
            break;
        case PostTexts::BY_NAME_SHORT:
            LOG_E("%s: failed to dispatch serial = %d", func, serial);
            break;
        case PostTexts::WITHOUT_SERIAL:
            LOG_E("%s: failed to dispatch msg", func);
            break;
    }
    return result;
}

int QmiClient::refusePost(PostTexts texts, const char* func, int msgId) {
    if (texts == PostTexts::BY_ID) {
        LOG_E("Failed to alloc new param or message for msg id %d", msgId);
    } else {
        LOG_E("%s: failed to alloc new param or message", func);
    }
    return ERRNO_NO_MEMORY;
}

bool QmiClient::accepts(const char* func, const MessagePtr& msg) const {
    const char* className = mService.className.c_str();
    if (!msg) {
        LOG_E("%s: null msg input, %s can't handle it", func, className);
        return false;
    }
    LOG_I("%s: %s is handling message: %d", func, className, msg->getId());
    return true;
}

const Param* QmiClient::takeRecord(const std::string& type, const char* func,
                                   const MessagePtr& msg) {
    const std::shared_ptr<Param> param = msg->getParam();
    if (!param || !param->isType(type)) {
        LOG_E("%s: invalid parameter", func);
        return nullptr;
    }
    return param.get();  // the message owns it
}

Errno QmiClient::checkConnected(const char* func) const {
    if (isConnected()) {
        return ERRNO_SUCCESS;
    }
    LOG_E("%s: %s QMI service not connected", func, mService.name);
    return mService.notConnected;
}

Errno QmiClient::callModem(Ready ready, const char* func, CallTexts texts,
                           FunctionRef<int()> call) const {
    Errno err = (this->*ready)(func);
    if (err != ERRNO_SUCCESS) {
        return err;
    }
    err = withMemory(func, [&] { return call() == 0 ? ERRNO_SUCCESS : ERRNO_FAILED; });
    if (err != ERRNO_SUCCESS && texts.failed != nullptr) {
        LOG_E("%s: %s", func, texts.failed);
    } else if (err == ERRNO_SUCCESS && texts.succeeded != nullptr) {
        LOG_I("%s: %s", func, texts.succeeded);
    }
    return err;
}

Errno QmiClient::withMemory(const char* func, FunctionRef<Errno()> fill) {
    try {
        return fill();
    } catch (const std::bad_alloc&) {
        LOG_E("%s: no memory for the answer", func);
        return ERRNO_NO_MEMORY;
    }
}

void QmiClient::finishAsync(const QmiService& service, const char* func, void* cookie,
                            FunctionRef<void(const ModemAsyncCbData&)> finish) {
    if (cookie == nullptr) {
        LOG_E("%s: null async cb data for %s QMI client, can't proceed callback", func,
              service.name);
        return;
    }
    const std::unique_ptr<ModemAsyncCbData> owned(static_cast<ModemAsyncCbData*>(cookie));
    if (!owned->msg) {
        LOG_E("%s: can't get original %s request message from cb data, maybe logic issue", func,
              service.name);
    } else if (!owned->client || !owned->client->isType(service.className)) {
        LOG_E("%s: can't get %s QMI client from cb data, maybe logic issue", func, service.name);
    } else {
        finish(*owned);
    }
}

void QmiClient::refuseAsync(const QmiService& service, const char* func, void* cookie) {
    finishAsync(service, func, cookie, [&](const ModemAsyncCbData& data) {
        const int msgId = data.msg->getId();
        LOG_I("%s: processing modem api %s async callback data for message %d", func, service.name,
              msgId);
        logUnsupportedOriginal(service, func, msgId);
    });
}

void QmiClient::logUnsupportedOriginal(const QmiService& service, const char* func, int msgId) {
    LOG_E("%s: unsupported original message id %d, can't be handled in %s", func, msgId,
          service.className.c_str());
}
