#include "clients/VsQmiClient.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "params/MessageIds.h"

const std::string& VsQmiClient::RTTI_TYPE = *new std::string("VsQmiClient");
const QmiService VsQmiClient::SERVICE{MODEM_API_QMI_SERVICE_VS, "VS", RTTI_TYPE};

const VsQmiClient::VsRoute VsQmiClient::ROUTES[] = {
        {{VsMessage::GET_BUILD_TIME, &VsQmiClient::handleGetBuildTimeMessage},
         &VsQmiClient::processGetBuildTimeAsyncResponse},
        {{VsMessage::GET_BUILD_ID, &VsQmiClient::handleGetBuildIdMessage},
         &VsQmiClient::processGetBuildIdAsyncResponse},
        {{VsMessage::ACTIVATE_MBN_BY_NAME, &VsQmiClient::handleActivateMbnByNameMessage},
         &VsQmiClient::processActivateMbnByNameAsyncResponse},
        {{VsMessage::RESTORE_MBN, &VsQmiClient::handleRestoreMbnMessage},
         &VsQmiClient::processRestoreMbnAsyncResponse},
        {{VsMessage::SET_AGPS_TEST_MODE, &VsQmiClient::handleSetAgpsTestModeMessage},
         &VsQmiClient::processSetAgpsTestModeAsyncResponse},
        {{VsMessage::GET_AGPS_TEST_MODE, &VsQmiClient::handleGetAgpsTestModeMessage},
         &VsQmiClient::processGetAgpsTestModeAsyncResponse},
        {{VsMessage::GET_MODEM_POWER_SAVE_MODE, &VsQmiClient::handleGetModemPowerSaveModeMessage},
         &VsQmiClient::processGetModemPowerSaveModeAsyncResponse},
        {{VsMessage::SET_MODEM_POWER_SAVE_MODE, &VsQmiClient::handleSetModemPowerSaveModeMessage},
         &VsQmiClient::processSetModemPowerSaveModeAsyncResponse},
        {{VsMessage::SET_MODEM_PROPERTY, &VsQmiClient::handleSetModemPropertyMessage},
         &VsQmiClient::processSetModemPropertyAsyncResponse},
        {{VsMessage::GET_MODEM_PROPERTY, &VsQmiClient::handleGetModemPropertyMessage},
         &VsQmiClient::processGetModemPropertyAsyncResponse},
        {{VsMessage::DELETE_MODEM_PROPERTY, &VsQmiClient::handleDeleteModemPropertyMessage}},
        {{VsMessage::DO_COMMON_INTERFACE_DEBUG, &VsQmiClient::handleDoCommonInterfaceDebugMessage}},
        {{VsMessage::SET_MODEM_POWER_SAVE_STATUS,
          &VsQmiClient::handleSetModemPowerSaveStatusMessage},
         &VsQmiClient::processSetModemPowerSaveStatusAsyncResponse},
        {{VsMessage::READ_NV_ITEM, &VsQmiClient::handleReadNVItemMessage}},
        {{VsMessage::WRITE_NV_ITEM, &VsQmiClient::handleWriteNVItemMessage}},
        {{VsMessage::READ_EFS_FILE, &VsQmiClient::handleReadEfsFileMessage}},
        {{VsMessage::WRITE_EFS_FILE, &VsQmiClient::handleWriteEfsFileMessage}},
        {{VsMessage::DELETE_EFS_FILE, &VsQmiClient::handleDeleteEfsFileMessage}},
        {{VsMessage::READ_PRL, &VsQmiClient::handleReadPrlMessage}},
        {{VsMessage::WRITE_PRL, &VsQmiClient::handleWritePrlMessage}},
        {{VsMessage::VERIFY_NV, &VsQmiClient::handleVerifyNVMessage}},
        {{VsMessage::GET_SIMLOCK_INFO_STATUS, &VsQmiClient::handleGetSimlockInfoStateMessage}},
        {{VsMessage::GET_SIMLOCK_INFO_CATEGORY, &VsQmiClient::handleGetSimlockInfoCategoryMessage}},
        {{VsMessage::GET_SIMLOCK_INFO_NUMBER_RETRIES_REMAIN,
          &VsQmiClient::handleGetSimlockInfoNumberRetriesRemainMessage}},
        {{VsMessage::GET_SIMLOCK_FUSE_STATUS, &VsQmiClient::handleGetSimlockFuseStateMessage}},
        {{VsMessage::REBOOT_MODEM, &VsQmiClient::handleRebootModemMessage}},
        {{VsMessage::GET_BANDS_INFO, &VsQmiClient::handleGetBandsInfoMessage},
         &VsQmiClient::processGetBandsInfoAsyncResponse},
        {{VsMessage::REMOVE_RAT_MASK, &VsQmiClient::handleRemoveRatMaskMessage},
         &VsQmiClient::processRemoveRatMaskAsyncResponse},
        {{VsMessage::ABORT_RRC_CONNECTION, &VsQmiClient::handleAbortRRCConnectionMessage},
         &VsQmiClient::processAbortRRCConnectionResponse},
        {{VsMessage::SET_RADIO_INFO_REPORT_ENABLED,
          &VsQmiClient::handleSetRadioInfoReportEnabledMessage},
         &VsQmiClient::processSetRadioInfoReportEnabledAsyncResponse},
        {{VsMessage::DELETE_EFS_FILE_DIR, &VsQmiClient::handleDeleteEfsFileDirMessage}},
};

VsQmiClient::VsQmiClient(int instanceId, const std::shared_ptr<ModemResponseProxy>& responseProxy,
                         const std::shared_ptr<ModemIndicationProxy>& indicationProxy)
    : QmiClient(SERVICE, responseProxy, indicationProxy), mInstanceId(instanceId) {
    enableRtti(RTTI_TYPE);
}

int VsQmiClient::handle(std::shared_ptr<Message> msg) {
    return accepts(__func__, msg) ? route(*this, __func__, ROUTES, msg) : ERRNO_INVALID_PARAM;
}

void VsQmiClient::onConnected() {
    logConnected(__func__);
    // There is no retry: without the bind, events stay away until the service connects again.
    mBound = modem_api_bind_vs_subscription(mInstanceId) == 0;
    if (!mBound) {
        LOG_E("%s: failed to bind VS QMI subscription for instance id %d", __func__, mInstanceId);
    }
    modem_api_subscribe_event(MODEM_API_EVENT_RRC_STATE);
    modem_api_subscribe_event(MODEM_API_EVENT_NR_RADIO_INFO);
    modem_api_subscribe_event(MODEM_API_EVENT_POWER_SAVE_MODE);
    modem_api_register_indications();
}

ClientState VsQmiClient::getState() const {
    ClientState state = QmiClient::getState();
    state.bound = mBound;
    return state;
}

void VsQmiClient::modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                        modem_api_result_type) {
    const char* func = __func__;
    finishAsync(SERVICE, func, cookie, [&](const ModemAsyncCbData& owned) {
        const std::shared_ptr<Param> param = owned.msg->getParam();
        if (!param || !param->isType(SerialParam::RTTI_TYPE)) {
            LOG_E("%s: null param, can't process async response", func);
            return;
        }
        const int id = owned.msg->getId();
        LOG_I("%s: processing modem api VS async callback data for message %d", func, id);
        const auto* row = std::find_if(std::begin(ROUTES), std::end(ROUTES),
                                       [id](const VsRoute& route) { return route.id == id; });
        if (row == std::end(ROUTES) || row->process == nullptr) {
            logUnsupportedOriginal(SERVICE, func, id);
            return;
        }
        auto& client = static_cast<VsQmiClient&>(*owned.client);
        (client.*row->process)({data, length, static_cast<const SerialParam&>(*param)});
    });
}

Errno VsQmiClient::sendAsync(const char* func, const MessagePtr& msg,
                             FunctionRef<int(void* cookie)> call) {
    const Errno connected = checkConnected(func);
    if (connected != ERRNO_SUCCESS) {
        return connected;
    }
    return withMemory(func, [&]() -> Errno {
        auto self = std::static_pointer_cast<VsQmiClient>(shared_from_this());
        auto cookie = std::make_unique<ModemAsyncCbData>(msg, std::move(self));
        // The callback may run before the call returns: only a refusal gives the cookie back.
        ModemAsyncCbData* const handedOver = cookie.release();
        if (call(handedOver) == 0) {
            LOG_I("%s: %s", func, ASYNC_TEXTS.succeeded);
            return ERRNO_SUCCESS;
        }
        cookie.reset(handedOver);
        LOG_E("%s: %s", func, ASYNC_TEXTS.failed);
        return ERRNO_FAILED;
    });
}

Errno VsQmiClient::verifyModemAPIResponse(const void* data, size_t length) const {
    if (data == nullptr || length != sizeof(modem_async_response)) {
        LOG_E("%s: invalid async response data request, can't process", __func__);
        return ERRNO_INVALID_PARAM;
    }
    modem_api_result_type result{};
    memcpy(&result, static_cast<const uint8_t*>(data) + offsetof(modem_async_response, result),
           sizeof(result));
    if (result == MODEM_API_RESULT_SUCCESS) {
        return ERRNO_SUCCESS;
    }
    LOG_E("%s: invalid async response result, can't process", __func__);
    return convertModemAPIResultToOX(result);
}

Errno VsQmiClient::readAsyncResponse(
        const char* func, const void* data, size_t length,
        FunctionRef<Errno(const modem_async_response&)> extract) const {
    const Errno err = verifyModemAPIResponse(data, length);
    if (err != ERRNO_SUCCESS) {
        LOG_E("%s: invalid async response data", func);
        return err;
    }
    modem_async_response response;
    memcpy(&response, data, sizeof(response));  // the modem's buffer need not be aligned
    return withMemory(func, [&] { return extract(response); });
}

int VsQmiClient::finish(const char* func, const Completion& completion, Respond<> respond) {
    const auto nothing = [](const auto&) { return ERRNO_SUCCESS; };
    return answer(respond, completion.request.serial,
                  readAsyncResponse(func, completion.data, completion.length, nothing));
}
