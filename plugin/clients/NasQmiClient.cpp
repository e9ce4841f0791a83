#include "clients/NasQmiClient.h"

#include "params/MessageIds.h"

const std::string& NasQmiClient::RTTI_TYPE = *new std::string("NasQmiClient");
const QmiService NasQmiClient::SERVICE{MODEM_API_QMI_SERVICE_NAS, "NAS", RTTI_TYPE};

namespace {

const SubscriptionBinding BINDING{modem_api_bind_nas_subscription, false};

}  // namespace

NasQmiClient::NasQmiClient(int instanceId, const std::shared_ptr<ModemResponseProxy>& responseProxy,
                           const std::shared_ptr<ModemIndicationProxy>& indicationProxy)
    : SubscriptionClient(SERVICE, BINDING, instanceId, responseProxy, indicationProxy) {
    enableRtti(RTTI_TYPE);
}

int NasQmiClient::handle(std::shared_ptr<Message> msg) {
    static constexpr Route<NasQmiClient> ROUTES[] = {
            {SubscriptionMessage::BIND_SUBSCRIPTION, &NasQmiClient::handleBindSubscriptionMessage},
            {NasMessage::SWITCH_NR_NETWORK_MODE, &NasQmiClient::handleSwitchNRNetworkMode},
            {NasMessage::GET_NR_NETWORK_MODE, &NasQmiClient::handleGetNRNetworkMode},
            {NasMessage::SET_VONR_MODE, &NasQmiClient::handleSetVoNRMode},
            {NasMessage::GET_VONR_MODE, &NasQmiClient::handleGetVoNRMode},
            {NasMessage::SET_DEPRIORITIZE_NR_MODE, &NasQmiClient::handleSetDeprioritizeNrMode},
    };
    if (!accepts(__func__, msg)) {
        return ERRNO_INVALID_PARAM;
    }
    rebindBeforeUse(__func__, msg->getId());
    return route(*this, __func__, ROUTES, msg);
}

void NasQmiClient::onConnected() {
    logConnected(__func__);
    bindSubscription(mInstanceId);
    if (modem_suppress_nas_ss_inds() != 0) {
        LOG_E("%s: failed to suppress NAS ss indications", __func__);
    }
}

int NasQmiClient::switchNRNetworkMode(int serial, int mode) {
    return postMode(__func__, NasMessage::SWITCH_NR_NETWORK_MODE, serial, mode);
}

int NasQmiClient::handleSwitchNRNetworkMode(const MessagePtr& msg) {
    return serveSet(__func__,
                    {"failed to switch nr network mode", "successfully set switch nr network mode"},
                    msg, modem_switch_nr_network_mode, &Proxy::respondSwitchNRNetworkMode);
}

int NasQmiClient::getNRNetworkMode(int serial) {
    return postVoid(__func__, NasMessage::GET_NR_NETWORK_MODE, serial);
}

int NasQmiClient::handleGetNRNetworkMode(const MessagePtr& msg) {
    return serveGet(__func__, {"failed to get nr5g band pref", "successfully got NR Network mode"},
                    msg, modem_get_nr_network_mode, &Proxy::respondGetNRNetworkMode);
}

int NasQmiClient::setVoNRMode(int serial, int mode) {
    return postMode(__func__, NasMessage::SET_VONR_MODE, serial, mode);
}

int NasQmiClient::handleSetVoNRMode(const MessagePtr& msg) {
    return serveSet(__func__, {"failed to set vonr mode", "successfully set vonr mode"}, msg,
                    modem_set_vonr_mode, &Proxy::respondSetVoNRMode);
}

int NasQmiClient::getVoNRMode(int serial) {
    return postVoid(__func__, NasMessage::GET_VONR_MODE, serial);
}

int NasQmiClient::handleGetVoNRMode(const MessagePtr& msg) {
    return serveGet(__func__, {"failed to get vonr mode", "successfully get vonr mode"}, msg,
                    modem_get_vonr_mode, &Proxy::respondGetVoNRMode);
}

int NasQmiClient::deprioritizeNr(int serial, int mode) {
    return postMode(__func__, NasMessage::SET_DEPRIORITIZE_NR_MODE, serial, mode);
}

int NasQmiClient::handleSetDeprioritizeNrMode(const MessagePtr& msg) {
    return serveSet(__func__, {"failed to deprioritize nr", "successfully deprioritize nr"}, msg,
                    modem_deprioritize_nr_mode, &Proxy::respondDeprioritizeNr);
}

int NasQmiClient::postMode(const char* func, int msgId, int serial, int mode) {
    LOG_I("%s: serial = %d, mode = %d", func, serial, mode);
    return sendRequest(serial, msgId, mode);
}

int NasQmiClient::serveSet(const char* func, CallTexts texts, const MessagePtr& msg,
                           int (*set)(int32_t), Respond<> respond) {
    return serve<SerialIntParam>(
            func, texts, msg, respond, [set](const auto& request) { return set(request.value); },
            BOUND);
}

int NasQmiClient::serveGet(const char* func, CallTexts texts, const MessagePtr& msg,
                           int (*get)(uint32_t*), Respond<uint32_t> respond) {
    return serve<SerialVoidParam>(
            func, texts, msg, respond,
            [get](const auto&, uint32_t& mode) { return fetch(get, mode); }, BOUND);
}

void NasQmiClient::modemApiAsyncCallback(const void*, size_t, void* cookie, modem_api_result_type) {
    refuseAsync(SERVICE, __func__, cookie);
}
