#include "clients/DmsQmiClient.h"

#include "params/MessageIds.h"

const std::string& DmsQmiClient::RTTI_TYPE = *new std::string("DmsQmiClient");
const QmiService DmsQmiClient::SERVICE{MODEM_API_QMI_SERVICE_DMS, "DMS", RTTI_TYPE};

DmsQmiClient::DmsQmiClient(const std::shared_ptr<ModemResponseProxy>& responseProxy,
                           const std::shared_ptr<ModemIndicationProxy>& indicationProxy)
    : QmiClient(SERVICE, responseProxy, indicationProxy) {
    enableRtti(RTTI_TYPE);
}

int DmsQmiClient::handle(std::shared_ptr<Message> msg) {
    static constexpr Route<DmsQmiClient> ROUTES[] = {
            {DmsMessage::GET_OPERATING_MODE, &DmsQmiClient::handleGetOperatingModeMessage},
            {DmsMessage::SET_OPERATING_MODE, &DmsQmiClient::handleSetOperatingModeMessage},
    };
    return accepts(__func__, msg) ? route(*this, __func__, ROUTES, msg) : ERRNO_INVALID_PARAM;
}

void DmsQmiClient::onConnected() {
    logConnected(__func__);
}

int DmsQmiClient::getOperatingMode(int serial) {
    LOG_I("%s: serial = %d", __func__, serial);
    return post<SerialVoidParam>(PostTexts::BY_NAME, __func__, DmsMessage::GET_OPERATING_MODE,
                                 serial);
}

int DmsQmiClient::handleGetOperatingModeMessage(const MessagePtr& msg) {
    const char* func = __func__;
    // If the modem writes a mode and then fails, the answer carries that mode with the error.
    const auto get = [func](const auto&, int32_t& mode) {
        const int result = modem_get_operating_mode(&mode);
        if (result == 0) {
            LOG_I("%s: got operating mode %d", func, mode);
        }
        return result;
    };
    return serve<SerialVoidParam>(func, {"failed to get operating mode"}, msg,
                                  &Proxy::respondGetOperatingMode, get);
}

int DmsQmiClient::setOperatingMode(int serial, int mode) {
    LOG_I("%s: serial = %d, mode = %d", __func__, serial, mode);
    return post<SerialIntParam>(PostTexts::BY_NAME, __func__, DmsMessage::SET_OPERATING_MODE,
                                serial, mode);
}

int DmsQmiClient::handleSetOperatingModeMessage(const MessagePtr& msg) {
    return serve<SerialIntParam>(
            __func__, {"failed to set operating mode", "successfully set operating mode"}, msg,
            &Proxy::respondSetOperatingMode,
            [](const auto& request) { return modem_set_operating_mode(request.value); });
}

void DmsQmiClient::modemApiAsyncCallback(const void*, size_t, void* cookie, modem_api_result_type) {
    refuseAsync(SERVICE, __func__, cookie);
}
