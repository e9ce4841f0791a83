#include "clients/PdcQmiClient.h"

#include <algorithm>
#include <array>

#include "clients/EventRecord.h"
#include "clients/MbnConfigLoader.h"
#include "clients/MbnList.h"
#include "params/MessageIds.h"
#include "params/Params.h"

const std::string& PdcQmiClient::RTTI_TYPE = *new std::string("PdcQmiClient");
const QmiService PdcQmiClient::SERVICE{MODEM_API_QMI_SERVICE_PDC, "PDC", RTTI_TYPE, ERRNO_FAILED};

namespace {

constexpr size_t INFO_OFFSET = 12;  // of identifier or metadata in an event
static_assert(offsetof(modem_pdc_active_info_event, config_id) == INFO_OFFSET);
static_assert(offsetof(modem_pdc_meta_info_event, metadata) == INFO_OFFSET);

using ConfigId = std::array<uint8_t, MODEM_PDC_CONFIG_ID_SIZE>;

ConfigId configIdOf(const std::vector<uint8_t>& bytes) {
    ConfigId id{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), id.size()), id.begin());
    return id;
}

}  // namespace

PdcQmiClient::PdcQmiClient(const std::shared_ptr<ModemResponseProxy>& responseProxy,
                           const std::shared_ptr<ModemIndicationProxy>& indicationProxy)
    : QmiClient(SERVICE, responseProxy, indicationProxy) {
    enableRtti(RTTI_TYPE);
}

int PdcQmiClient::handle(std::shared_ptr<Message> msg) {
    static constexpr Route<PdcQmiClient> ROUTES[] = {
            {PdcMessage::GET_ACTIVE_MBN_INFO, &PdcQmiClient::handleGetActiveMbnInfoMessage},
            {PdcMessage::GET_META_MBN_INFO, &PdcQmiClient::handleGetMetaMbnInfoMessage},
            {PdcMessage::GET_MBN_LIST, &PdcQmiClient::handleGetMbnListMessage},
            {PdcMessage::SELECT_MBN, &PdcQmiClient::handleSelectMbnMessage},
            {PdcMessage::SELECT_MBN_EXT, &PdcQmiClient::handleSelectMbnExtMessage},
            {PdcMessage::DELETE_ALL_MBNS, &PdcQmiClient::handleDeleteAllMbnsMessage},
            {PdcMessage::LOAD_MBN_CONFIG, &PdcQmiClient::handleLoadMbnConfigMessage},
            {PdcMessage::ACTIVATE_MBN, &PdcQmiClient::handleActivateMbnMessage},
            {PdcMessage::DEACTIVATE_MBN, &PdcQmiClient::handleDeactivateMbnMessage},
            {PdcMessage::ACTIVATE_REGULAR_MBN, &PdcQmiClient::handleActivateRegularMbnMessage},
    };
    return accepts(__func__, msg) ? route(*this, __func__, ROUTES, msg) : ERRNO_INVALID_PARAM;
}

void PdcQmiClient::onConnected() {
    logConnected(__func__);
}

template <class Record, class... Values>
int PdcQmiClient::postRequest(const char* func, int msgId, int serial, const Values&... values) {
    return post<Record>(PostTexts::BY_NAME, func, msgId, serial, values...);
}

template <class Event>
int PdcQmiClient::respondInfo(const char* func, const void* data, size_t len,
                              uint32_t Event::*length, Respond<const PdcMbnInfo&> respond) {
    Event event;
    if (!takeEvent(func, data, len, event)) {
        return ERRNO_INVALID_PARAM;
    }
    LOG_I("%s: token is %d", func, event.token);
    // The reported length is believed even beyond its field, but not beyond the event's data.
    const auto* bytes = static_cast<const uint8_t*>(data) + INFO_OFFSET;
    const size_t reported = std::min<size_t>(event.*length, len - INFO_OFFSET);
    PdcMbnInfo info{event.result, {}};
    const Errno err = withMemory(func, [&] {
        info.configId.assign(bytes, bytes + reported);
        return convertModemAPIResultToOX(event.result);
    });
    return answer(respond, event.token, err, info);
}

int PdcQmiClient::getActiveMbnInfo(int serial, int type) {
    return postRequest<SerialIntParam>(__func__, PdcMessage::GET_ACTIVE_MBN_INFO, serial, type);
}

int PdcQmiClient::handleGetActiveMbnInfoMessage(const MessagePtr& msg) {
    const auto* request = takeRecord<SerialIntParam>(__func__, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    const Errno err = checkConnected(__func__);
    if (err != ERRNO_SUCCESS) {
        return err;
    }
    // A call that the modem refuses stays without an answer: only an event answers this request.
    if (modem_pdc_get_activate_config_info(request->value, request->serial) == 0) {
        LOG_I("%s: successfully sent request to modem", __func__);
    }
    return ERRNO_SUCCESS;
}

int PdcQmiClient::respondGetActiveMbnInfoAsync(const void* data, size_t len) {
    return respondInfo(__func__, data, len, &modem_pdc_active_info_event::config_id_length,
                       &Proxy::respondGetActiveMbnInfo);
}

int PdcQmiClient::getMetaMbnInfo(int serial, const std::vector<uint8_t>& configId, int length) {
    return postRequest<GetMetaMbnInfoParam>(__func__, PdcMessage::GET_META_MBN_INFO, serial,
                                            configId, length);
}

int PdcQmiClient::handleGetMetaMbnInfoMessage(const MessagePtr& msg) {
    const auto* request = takeRecord<GetMetaMbnInfoParam>(__func__, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    if (checkConnected(__func__) == ERRNO_SUCCESS) {
        const ConfigId id = configIdOf(request->data);
        LOG_I("%s: data length = %d", __func__, request->length);
        if (modem_pdc_get_config_info(id.data(), request->length, request->serial) == 0) {
            LOG_I("%s: successfully sent request", __func__);
            return ERRNO_SUCCESS;
        }
        LOG_I("%s: failed to send request", __func__);
    }
    return answer(&Proxy::respondGetMetaMbnInfo, request->serial, ERRNO_FAILED, PdcMbnInfo());
}

int PdcQmiClient::respondGetMetaMbnInfoAsync(const void* data, size_t len) {
    return respondInfo(__func__, data, len, &modem_pdc_meta_info_event::metadata_length,
                       &Proxy::respondGetMetaMbnInfo);
}

int PdcQmiClient::getMbnList(int serial) {
    return postRequest<SerialVoidParam>(__func__, PdcMessage::GET_MBN_LIST, serial);
}

int PdcQmiClient::handleGetMbnListMessage(const MessagePtr& msg) {
    const auto* request = takeRecord<SerialVoidParam>(__func__, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    // The list is the device's, not the modem's: the connection does not matter.
    const char* func = __func__;
    std::vector<std::string> mbns;
    const Errno err = withMemory(func, [&] { return readMbnList(func, mbns); });
    return answer(&Proxy::respondGetMbnList, request->serial, err, mbns);
}

int PdcQmiClient::selectMbn(int serial, int type, const std::vector<uint8_t>& configId) {
    return postRequest<SelectedMbnParam>(__func__, PdcMessage::SELECT_MBN, serial, type, configId);
}

int PdcQmiClient::handleSelectMbnMessage(const MessagePtr& msg) {
    return serve<SelectedMbnParam>(__func__, SELECTED, msg, &Proxy::respondSelectMbn,
                                   [](const auto& request) {
                                       return modem_pdc_set_selected_config_info(
                                               request.type, configIdOf(request.data).data());
                                   });
}

int PdcQmiClient::selectMbnExt(int serial, int type, const std::vector<uint8_t>& configId,
                               int length) {
    return postRequest<SelectedMbnExtParam>(__func__, PdcMessage::SELECT_MBN_EXT, serial, type,
                                            configId, length);
}

int PdcQmiClient::handleSelectMbnExtMessage(const MessagePtr& msg) {
    const char* func = __func__;
    return serve<SelectedMbnExtParam>(
            func, SELECTED, msg, &Proxy::respondSelectMbnExt, [func](const auto& request) {
                LOG_I("%s: config length = %d", func, request.length);
                return modem_pdc_set_selected_config_info_ext(
                        request.type, configIdOf(request.data).data(), request.length);
            });
}

int PdcQmiClient::deleteAllMbns(int serial) {
    return postRequest<SerialVoidParam>(__func__, PdcMessage::DELETE_ALL_MBNS, serial);
}

int PdcQmiClient::handleDeleteAllMbnsMessage(const MessagePtr& msg) {
    return serve<SerialVoidParam>(__func__, {nullptr, "successfully delete all mbns"}, msg,
                                  &Proxy::respondDeleteAllMbns,
                                  [](const auto&) { return modem_pdc_delete_all_mbns(); });
}

int PdcQmiClient::loadMbnConfig(int serial, const std::vector<uint8_t>& path) {
    return postRequest<LoadMbnConfigParam>(__func__, PdcMessage::LOAD_MBN_CONFIG, serial, path);
}

int PdcQmiClient::handleLoadMbnConfigMessage(const MessagePtr& msg) {
    const char* func = __func__;
    return serve<LoadMbnConfigParam>(
            func, {}, msg, &Proxy::respondLoadMbnConfig,
            [func](const auto& request) { return loadMbnConfigFile(func, request.data); });
}

int PdcQmiClient::activateMbn(int serial, int type) {
    return postRequest<SerialIntParam>(__func__, PdcMessage::ACTIVATE_MBN, serial, type);
}

int PdcQmiClient::handleActivateMbnMessage(const MessagePtr& msg) {
    return serve<SerialIntParam>(
            __func__, {nullptr, "successfully activate mbn"}, msg, &Proxy::respondActivateMbn,
            [](const auto& request) { return modem_pdc_activate_config(request.value); });
}

int PdcQmiClient::deactivateMbn(int serial, int type) {
    return postRequest<SerialIntParam>(__func__, PdcMessage::DEACTIVATE_MBN, serial, type);
}

int PdcQmiClient::handleDeactivateMbnMessage(const MessagePtr& msg) {
    return serve<SerialIntParam>(
            __func__, {nullptr, "successfully deactivated mbn"}, msg, &Proxy::respondDeactivateMbn,
            [](const auto& request) { return modem_pdc_deactivate_config(request.value); });
}

int PdcQmiClient::activateRegularMbn(int serial, int type) {
    return postRequest<SerialIntParam>(__func__, PdcMessage::ACTIVATE_REGULAR_MBN, serial, type);
}

int PdcQmiClient::handleActivateRegularMbnMessage(const MessagePtr& msg) {
    const auto* request = takeRecord<SerialIntParam>(__func__, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    if (checkConnected(__func__) == ERRNO_SUCCESS &&
        modem_pdc_activate_regular_config(request->value, request->serial) == 0) {
        LOG_I("%s: successfully activated regular mbn", __func__);
        return ERRNO_SUCCESS;
    }
    return answer(&Proxy::respondActivateRegularMbn, request->serial, ERRNO_FAILED);
}

int PdcQmiClient::respondActivateRegularMbnAsync(const void* data, size_t len) {
    modem_pdc_activate_regular_event event;
    if (!takeEvent(__func__, data, len, event)) {
        return ERRNO_INVALID_PARAM;
    }
    LOG_I("%s: token is %d", __func__, event.token);
    return answer(&Proxy::respondActivateRegularMbn, event.token,
                  convertModemAPIResultToOX(event.result));
}

void PdcQmiClient::modemApiAsyncCallback(const void*, size_t, void* cookie, modem_api_result_type) {
    refuseAsync(SERVICE, __func__, cookie);
}
