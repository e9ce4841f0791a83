#include "clients/SarQmiClient.h"

#include "params/MessageIds.h"

const std::string& SarQmiClient::RTTI_TYPE = *new std::string("SarQmiClient");
const QmiService SarQmiClient::SERVICE{MODEM_API_QMI_SERVICE_SAR, "SAR", RTTI_TYPE};

SarQmiClient::SarQmiClient(const std::shared_ptr<ModemResponseProxy>& responseProxy,
                           const std::shared_ptr<ModemIndicationProxy>& indicationProxy)
    : QmiClient(SERVICE, responseProxy, indicationProxy) {
    enableRtti(RTTI_TYPE);
}

int SarQmiClient::handle(std::shared_ptr<Message> msg) {
    static constexpr Route<SarQmiClient> ROUTES[] = {
            {SarMessage::SET_SAR_STATE, &SarQmiClient::handleSetSarStateMessage},
    };
    return accepts(__func__, msg) ? route(*this, __func__, ROUTES, msg) : ERRNO_INVALID_PARAM;
}

void SarQmiClient::onConnected() {
    logConnected(__func__);
}

int SarQmiClient::setSarState(int serial, int state) {
    LOG_I("%s: serial = %d, state = %d", __func__, serial, state);
    return post<SerialIntParam>(PostTexts::BY_NAME, __func__, SarMessage::SET_SAR_STATE, serial,
                                state);
}

int SarQmiClient::handleSetSarStateMessage(const MessagePtr& msg) {
    const char* func = __func__;
    const auto set = [func](const auto& request) {
        LOG_I("%s: sar state = %d", func, request.value);
        const int result = modem_set_sar_dsi(request.value);
        if (result != 0) {
            LOG_E("%s: failed to set rf sar state to %d", func, request.value);
        } else {
            LOG_I("%s: successfully set rf sar state to %d", func, request.value);
        }
        return result;
    };
    return serve<SerialIntParam>(func, {}, msg, &Proxy::respondSetSarState, set);
}

void SarQmiClient::modemApiAsyncCallback(const void*, size_t, void* cookie, modem_api_result_type) {
    refuseAsync(SERVICE, __func__, cookie);
}
