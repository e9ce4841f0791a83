#include "clients/VsQmiClient.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "clients/CheckedCopy.h"
#include "params/MessageIds.h"
#include "params/Params.h"

const std::string& VsQmiClient::RTTI_TYPE = *new std::string("VsQmiClient");

namespace {

const QmiService VS{MODEM_API_QMI_SERVICE_VS, "VS", VsQmiClient::RTTI_TYPE};

constexpr size_t BUILD_TEXT_MAX = 256;

// Several synchronous requests speak of an async one in the field's logs.
constexpr const char* SYNC_FAILED = "failed to send sync request";
constexpr const char* SYNC_SENT = "successfully sent sync request";
constexpr const char* ASYNC_FAILED = "failed to send async request";
constexpr const char* ASYNC_SENT = "successfully sent async request";

const char* toModem(const std::string& text) {
    return text.c_str();
}

template <class Integer>
Integer toModem(Integer value) {
    return value;
}

/** A text of the modem's, which ends at its first NUL, or at the end of the field. */
template <size_t Size>
std::string textOf(const char (&field)[Size], size_t length = Size) {
    return std::string(field, strnlen(field, std::min(length, Size)));
}

/**
 * The record as the modem takes it. A name or value that is longer than its field runs on into what
 * follows, which is written after it; one that runs past the record stops the process.
 */
modem_property_record propertyRecord(const char* func, const ModemPropertyParam& request) {
    modem_property_record record{};
    auto* bytes = reinterpret_cast<uint8_t*>(&record);
    const auto put = [&](size_t offset, const std::string& text, uint32_t& length) {
        checkedCopy(func, bytes + offset, sizeof(record) - offset, text.data(), text.size());
        length = static_cast<uint32_t>(text.size());
    };
    put(offsetof(modem_property_record, name), request.name, record.name_length);
    put(offsetof(modem_property_record, value), request.value, record.value_length);
    return record;
}

template <size_t Capacity>
void dropBadCount(BandList<Capacity>& list) {
    if (list.count < 1 || list.count > static_cast<int32_t>(Capacity)) {
        list = {};
    }
}

BandsInfoType bandsOf(const modem_bands_info& reported) {
    BandsInfoType bands;
    static_assert(sizeof(bands) == sizeof(reported));
    memcpy(&bands, &reported, sizeof(bands));
    dropBadCount(bands.list1);
    dropBadCount(bands.list2);
    dropBadCount(bands.list3);
    dropBadCount(bands.list4);
    dropBadCount(bands.list5);
    return bands;
}

}  // namespace

const VsQmiClient::VsRoute VsQmiClient::ROUTES[ROUTE_COUNT] = {
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

VsQmiClient::VsQmiClient(int instanceId, std::shared_ptr<ModemResponseProxy> responseProxy,
                         std::shared_ptr<ModemIndicationProxy> indicationProxy)
    : QmiClient(VS, std::move(responseProxy), std::move(indicationProxy)), mInstanceId(instanceId) {
    enableRtti(RTTI_TYPE);
}

int VsQmiClient::handle(std::shared_ptr<Message> msg) {
    return accepts(__func__, msg) ? route(*this, __func__, ROUTES, msg) : ERRNO_INVALID_PARAM;
}

void VsQmiClient::onConnected() {
    logConnected(__func__);
    if (modem_api_bind_vs_subscription(mInstanceId) != 0) {
        LOG_E("%s: failed to bind VS QMI subscription for instance id %d", __func__, mInstanceId);
    }
    modem_api_subscribe_event(MODEM_API_EVENT_RRC_STATE);
    modem_api_subscribe_event(MODEM_API_EVENT_NR_RADIO_INFO);
    modem_api_subscribe_event(MODEM_API_EVENT_POWER_SAVE_MODE);
    modem_api_register_indications();
}

void VsQmiClient::modemApiAsyncCallback(const void* data, size_t length, void* cookie,
                                        modem_api_result_type) {
    const char* func = __func__;
    finishAsync(VS, func, cookie, [&](const ModemAsyncCbData& owned) {
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
            logUnsupportedOriginal(VS, func, id);
            return;
        }
        const auto& client = static_cast<const VsQmiClient&>(*owned.client);
        (client.*row->process)(data, length, std::static_pointer_cast<SerialParam>(param));
    });
}

// ---- The steps that requests share --------------------------------------------------------------

int VsQmiClient::postVoid(const char* func, int msgId, int serial) {
    LOG_I("%s: serial = %d", func, serial);
    return sendRequest(serial, msgId);
}

template <class Record, class Call, class... Payload>
int VsQmiClient::serveAsync(const char* func, const MessagePtr& msg, Call call,
                            Respond<Payload...> respond) {
    const Record* request = takeRecord<Record>(func, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    Errno err = checkConnected(func);
    if (err == ERRNO_SUCCESS) {
        err = withMemory(func, [&] {
            auto self = std::static_pointer_cast<VsQmiClient>(shared_from_this());
            auto cookie = std::make_unique<ModemAsyncCbData>(msg, std::move(self));
            // The callback may run before the call returns: only a refusal gives the cookie back.
            ModemAsyncCbData* const handedOver = cookie.release();
            if (call(*request, handedOver) == 0) {
                LOG_I("%s: %s", func, ASYNC_SENT);
                return ERRNO_SUCCESS;
            }
            cookie.reset(handedOver);
            LOG_E("%s: %s", func, ASYNC_FAILED);
            return ERRNO_FAILED;
        });
        if (err == ERRNO_SUCCESS) {
            return ERRNO_SUCCESS;
        }
    }
    return mResponseProxy->respondEmpty(respond, request->serial, err);
}

template <class... Payload>
int VsQmiClient::serveAsync(const char* func, const MessagePtr& msg,
                            int (*modemCall)(void*, modem_api_async_callback),
                            Respond<Payload...> respond) {
    return serveAsync<SerialVoidParam>(
            func, msg,
            [modemCall](const SerialVoidParam&, void* cookie) {
                return modemCall(cookie, modemApiAsyncCallback);
            },
            respond);
}

template <class Record, class Value, class... Payload>
int VsQmiClient::serveAsync(const char* func, const MessagePtr& msg,
                            int (*modemCall)(Value, void*, modem_api_async_callback),
                            Respond<Payload...> respond) {
    return serveAsync<Record>(
            func, msg,
            [modemCall](const Record& request, void* cookie) {
                return modemCall(toModem(request.value), cookie, modemApiAsyncCallback);
            },
            respond);
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

int VsQmiClient::finish(const char* func, const void* data, size_t length,
                        const RequestPtr& request, Respond<> respond) const {
    const Errno err = verifyModemAPIResponse(data, length);
    if (err != ERRNO_SUCCESS) {
        LOG_E("%s: invalid async response data", func);
    }
    return (mResponseProxy.get()->*respond)(request->serial, err);
}

template <class Extract, class Payload>
int VsQmiClient::finish(const char* func, const void* data, size_t length,
                        const RequestPtr& request, Respond<Payload> respond,
                        Extract extract) const {
    std::decay_t<Payload> payload{};
    Errno err = verifyModemAPIResponse(data, length);
    if (err != ERRNO_SUCCESS) {
        LOG_E("%s: invalid async response data", func);
    } else {
        modem_async_response response;
        memcpy(&response, data, sizeof(response));  // the modem's buffer need not be aligned
        err = withMemory(func, [&]() -> Errno { return extract(response.payload, payload); });
    }
    return (mResponseProxy.get()->*respond)(request->serial, err, payload);
}

// ---- Requests, in the order of their ids --------------------------------------------------------

int VsQmiClient::finishBuildText(const char* func, const char* what, const void* data,
                                 size_t length, const RequestPtr& request,
                                 Respond<const std::string&> respond) const {
    return finish(func, data, length, request, respond,
                  [&](const auto& payload, std::string& text) {
                      const size_t reported = payload.build.length;
                      if (reported >= BUILD_TEXT_MAX) {
                          LOG_E("%s: %s string length %zu exceed max size, can't report", func,
                                what, reported);
                          return ERRNO_INVALID_PARAM;
                      }
                      text = textOf(payload.build.text, reported);
                      return ERRNO_SUCCESS;
                  });
}

int VsQmiClient::getBuildTime(int serial) {
    return postVoid(__func__, VsMessage::GET_BUILD_TIME, serial);
}

int VsQmiClient::handleGetBuildTimeMessage(const MessagePtr& msg) {
    return serveAsync(__func__, msg, modem_get_build_time,
                      &ModemResponseProxy::respondGetBuildTime);
}

int VsQmiClient::processGetBuildTimeAsyncResponse(const void* data, size_t length,
                                                  RequestPtr request) const {
    return finishBuildText(__func__, "build time", data, length, request,
                           &ModemResponseProxy::respondGetBuildTime);
}

int VsQmiClient::getBuildId(int serial) {
    return postVoid(__func__, VsMessage::GET_BUILD_ID, serial);
}

int VsQmiClient::handleGetBuildIdMessage(const MessagePtr& msg) {
    return serveAsync(__func__, msg, modem_get_build_id, &ModemResponseProxy::respondGetBuildId);
}

int VsQmiClient::processGetBuildIdAsyncResponse(const void* data, size_t length,
                                                RequestPtr request) const {
    return finishBuildText(__func__, "build Id", data, length, request,
                           &ModemResponseProxy::respondGetBuildId);
}

int VsQmiClient::activateMbnByName(int serial, const std::string& name) {
    return sendRequest(serial, VsMessage::ACTIVATE_MBN_BY_NAME, name);
}

int VsQmiClient::handleActivateMbnByNameMessage(const MessagePtr& msg) {
    return serveAsync<SerialStringParam>(__func__, msg, modem_api_active_mbn,
                                         &ModemResponseProxy::respondActivateMbnByName);
}

int VsQmiClient::processActivateMbnByNameAsyncResponse(const void* data, size_t length,
                                                       RequestPtr request) const {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondActivateMbnByName);
}

int VsQmiClient::restoreMbn(int serial) {
    return postVoid(__func__, VsMessage::RESTORE_MBN, serial);
}

int VsQmiClient::handleRestoreMbnMessage(const MessagePtr& msg) {
    return serveAsync(__func__, msg, modem_api_restore_mbn, &ModemResponseProxy::respondRestoreMbn);
}

int VsQmiClient::processRestoreMbnAsyncResponse(const void* data, size_t length,
                                                RequestPtr request) const {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondRestoreMbn);
}

int VsQmiClient::setAgpsTestMode(int serial, unsigned int mode) {
    LOG_I("%s: serial = %d, mode = %u", __func__, serial, mode);
    return sendRequest(serial, VsMessage::SET_AGPS_TEST_MODE, mode);
}

int VsQmiClient::handleSetAgpsTestModeMessage(const MessagePtr& msg) {
    return serveAsync<SerialUintParam>(__func__, msg, modem_api_set_agps_test_mode,
                                       &ModemResponseProxy::respondSetAgpsTestMode);
}

int VsQmiClient::processSetAgpsTestModeAsyncResponse(const void* data, size_t length,
                                                     RequestPtr request) const {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondSetAgpsTestMode);
}

int VsQmiClient::getAgpsTestMode(int serial) {
    return postVoid(__func__, VsMessage::GET_AGPS_TEST_MODE, serial);
}

int VsQmiClient::handleGetAgpsTestModeMessage(const MessagePtr& msg) {
    return serveAsync(__func__, msg, modem_api_get_agps_test_mode,
                      &ModemResponseProxy::respondGetAgpsTestMode);
}

int VsQmiClient::processGetAgpsTestModeAsyncResponse(const void* data, size_t length,
                                                     RequestPtr request) const {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondGetAgpsTestMode,
                  [](const auto& payload, uint32_t& mode) {
                      mode = payload.agps_test_mode;
                      return ERRNO_SUCCESS;
                  });
}

int VsQmiClient::getModemPowerSaveMode(int serial) {
    return postVoid(__func__, VsMessage::GET_MODEM_POWER_SAVE_MODE, serial);
}

int VsQmiClient::handleGetModemPowerSaveModeMessage(const MessagePtr& msg) {
    return serveAsync(__func__, msg, modem_api_get_power_save_mode,
                      &ModemResponseProxy::respondGetModemPowerSaveMode);
}

int VsQmiClient::processGetModemPowerSaveModeAsyncResponse(const void* data, size_t length,
                                                           RequestPtr request) const {
    return finish(__func__, data, length, request,
                  &ModemResponseProxy::respondGetModemPowerSaveMode,
                  [](const auto& payload, uint8_t& mode) {
                      mode = payload.power_save_mode;
                      return ERRNO_SUCCESS;
                  });
}

int VsQmiClient::setModemPowerSaveMode(int serial, unsigned char mode) {
    LOG_I("%s: serial = %d, mode = %u", __func__, serial, mode);
    return sendRequest(serial, VsMessage::SET_MODEM_POWER_SAVE_MODE, mode);
}

int VsQmiClient::handleSetModemPowerSaveModeMessage(const MessagePtr& msg) {
    return serveAsync<SerialByteParam>(__func__, msg, modem_api_set_power_save_mode,
                                       &ModemResponseProxy::respondSetModemPowerSaveMode);
}

int VsQmiClient::processSetModemPowerSaveModeAsyncResponse(const void* data, size_t length,
                                                           RequestPtr request) const {
    return finish(__func__, data, length, request,
                  &ModemResponseProxy::respondSetModemPowerSaveMode);
}

int VsQmiClient::setModemProperty(int serial, const std::string& name, const std::string& value) {
    LOG_I("%s: serial = %d", __func__, serial);
    return post<ModemPropertyParam>(PostTexts::BY_NAME_SHORT, __func__,
                                    VsMessage::SET_MODEM_PROPERTY, serial, name, value);
}

int VsQmiClient::handleSetModemPropertyMessage(const MessagePtr& msg) {
    const char* func = __func__;
    return serveAsync<ModemPropertyParam>(
            func, msg,
            [func](const ModemPropertyParam& request, void* cookie) {
                const modem_property_record record = propertyRecord(func, request);
                return modem_api_set_modem_property(&record, cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondSetModemProperty);
}

int VsQmiClient::processSetModemPropertyAsyncResponse(const void* data, size_t length,
                                                      RequestPtr request) const {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondSetModemProperty);
}

int VsQmiClient::getModemProperty(int serial, const std::string& name) {
    LOG_I("%s: serial = %d", __func__, serial);
    return sendRequest(serial, VsMessage::GET_MODEM_PROPERTY, name);
}

int VsQmiClient::handleGetModemPropertyMessage(const MessagePtr& msg) {
    return serveAsync<SerialStringParam>(__func__, msg, modem_api_get_modem_property,
                                         &ModemResponseProxy::respondGetModemProperty);
}

int VsQmiClient::processGetModemPropertyAsyncResponse(const void* data, size_t length,
                                                      RequestPtr request) const {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondGetModemProperty,
                  [](const auto& payload, std::string& value) {
                      value = textOf(payload.property_value);
                      return ERRNO_SUCCESS;
                  });
}

int VsQmiClient::deleteModemProperty(int serial, const std::string& name) {
    LOG_I("%s: serial = %d", __func__, serial);
    return sendRequest(serial, VsMessage::DELETE_MODEM_PROPERTY, name);
}

int VsQmiClient::handleDeleteModemPropertyMessage(const MessagePtr& msg) {
    return serve<SerialStringParam>(
            __func__, {SYNC_FAILED, SYNC_SENT}, msg,
            [](const SerialStringParam& request) {
                return modem_api_delete_modem_property_sync(request.value.c_str());
            },
            &ModemResponseProxy::respondDeleteModemProperty);
}

int VsQmiClient::doCommonInterfaceDebug(int serial, unsigned int value) {
    LOG_I("%s: serial = %d", __func__, serial);
    return sendRequest(serial, VsMessage::DO_COMMON_INTERFACE_DEBUG, value);
}

int VsQmiClient::handleDoCommonInterfaceDebugMessage(const MessagePtr& msg) {
    return serve<SerialUintParam>(
            __func__, {SYNC_FAILED, SYNC_SENT}, msg,
            [](const SerialUintParam& request) {
                return modem_common_interface_debug(request.value);
            },
            &ModemResponseProxy::respondDoCommonInterfaceDebug);
}

int VsQmiClient::setModemPowerSaveStatus(int serial, unsigned char status) {
    LOG_I("%s: serial = %d, status = %u", __func__, serial, status);
    return sendRequest(serial, VsMessage::SET_MODEM_POWER_SAVE_STATUS, status);
}

int VsQmiClient::handleSetModemPowerSaveStatusMessage(const MessagePtr& msg) {
    return serveAsync<SerialByteParam>(__func__, msg, modem_api_set_power_save_status,
                                       &ModemResponseProxy::respondSetModemPowerSaveStatus);
}

int VsQmiClient::processSetModemPowerSaveStatusAsyncResponse(const void* data, size_t length,
                                                             RequestPtr request) const {
    return finish(__func__, data, length, request,
                  &ModemResponseProxy::respondSetModemPowerSaveStatus);
}

int VsQmiClient::serveSimlockInfo(const char* func, const MessagePtr& msg,
                                  uint8_t modem_simlock_info::*field, Respond<uint8_t> respond) {
    return serve<SerialVoidParam>(
            func, {ASYNC_FAILED, ASYNC_SENT}, msg,
            [field](const SerialVoidParam&, uint8_t& value) {
                modem_simlock_info info{};
                const int result = fetch(modem_api_get_simlock_info, info);
                value = info.*field;
                return result;
            },
            respond);
}

int VsQmiClient::getSimlockInfoStatus(int serial) {
    return postVoid(__func__, VsMessage::GET_SIMLOCK_INFO_STATUS, serial);
}

int VsQmiClient::handleGetSimlockInfoStateMessage(const MessagePtr& msg) {
    return serveSimlockInfo(__func__, msg, &modem_simlock_info::status,
                            &ModemResponseProxy::respondGetSimlockInfoStatus);
}

int VsQmiClient::getSimlockInfoCategory(int serial) {
    return postVoid(__func__, VsMessage::GET_SIMLOCK_INFO_CATEGORY, serial);
}

int VsQmiClient::handleGetSimlockInfoCategoryMessage(const MessagePtr& msg) {
    return serveSimlockInfo(__func__, msg, &modem_simlock_info::category,
                            &ModemResponseProxy::respondGetSimlockInfoCategory);
}

int VsQmiClient::getSimlockInfoNumberRetriesRemain(int serial) {
    return postVoid(__func__, VsMessage::GET_SIMLOCK_INFO_NUMBER_RETRIES_REMAIN, serial);
}

int VsQmiClient::handleGetSimlockInfoNumberRetriesRemainMessage(const MessagePtr& msg) {
    return serveSimlockInfo(__func__, msg, &modem_simlock_info::retries_remaining,
                            &ModemResponseProxy::respondGetSimlockInfoNumberRetriesRemain);
}

int VsQmiClient::getSimlockFuseStatus(int serial) {
    return postVoid(__func__, VsMessage::GET_SIMLOCK_FUSE_STATUS, serial);
}

int VsQmiClient::handleGetSimlockFuseStateMessage(const MessagePtr& msg) {
    return serve<SerialVoidParam>(
            __func__, {ASYNC_FAILED, ASYNC_SENT}, msg,
            [](const SerialVoidParam&, uint32_t& status) {
                return fetch(modem_api_get_simlock_fuse_status, status);
            },
            &ModemResponseProxy::respondGetSimlockFuseStatus);
}

int VsQmiClient::rebootModem(int serial) {
    return postVoid(__func__, VsMessage::REBOOT_MODEM, serial);
}

int VsQmiClient::handleRebootModemMessage(const MessagePtr& msg) {
    return serve<SerialVoidParam>(
            __func__, {ASYNC_FAILED, ASYNC_SENT}, msg,
            [](const SerialVoidParam&) { return modem_subsystem_reboot(); },
            &ModemResponseProxy::respondRebootModem);
}

int VsQmiClient::getBandsInfo(int serial) {
    return postVoid(__func__, VsMessage::GET_BANDS_INFO, serial);
}

int VsQmiClient::handleGetBandsInfoMessage(const MessagePtr& msg) {
    return serveAsync(__func__, msg, modem_get_bands_info,
                      &ModemResponseProxy::respondGetBandsInfo);
}

int VsQmiClient::processGetBandsInfoAsyncResponse(const void* data, size_t length,
                                                  RequestPtr request) const {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondGetBandsInfo,
                  [](const auto& payload, BandsInfoType& bands) {
                      bands = bandsOf(payload.bands);
                      return ERRNO_SUCCESS;
                  });
}

int VsQmiClient::removeRatMask(int serial) {
    return postVoid(__func__, VsMessage::REMOVE_RAT_MASK, serial);
}

int VsQmiClient::handleRemoveRatMaskMessage(const MessagePtr& msg) {
    return serveAsync(__func__, msg, modem_api_remove_rat_mask,
                      &ModemResponseProxy::respondRemoveRatMask);
}

int VsQmiClient::processRemoveRatMaskAsyncResponse(const void* data, size_t length,
                                                   RequestPtr request) const {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondRemoveRatMask);
}

int VsQmiClient::abortRRCConnection(int serial) {
    return postVoid(__func__, VsMessage::ABORT_RRC_CONNECTION, serial);
}

int VsQmiClient::handleAbortRRCConnectionMessage(const MessagePtr& msg) {
    return serveAsync(__func__, msg, modem_abort_rrc_connection,
                      &ModemResponseProxy::respondAbortRRCConnection);
}

int VsQmiClient::processAbortRRCConnectionResponse(const void* data, size_t length,
                                                   RequestPtr request) const {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondAbortRRCConnection);
}

int VsQmiClient::setRadioInfoReportEnabled(int serial, unsigned int enabled) {
    LOG_I("%s: serial = %d, mode = %d", __func__, serial, enabled);
    return sendRequest(serial, VsMessage::SET_RADIO_INFO_REPORT_ENABLED, enabled);
}

int VsQmiClient::handleSetRadioInfoReportEnabledMessage(const MessagePtr& msg) {
    return serveAsync<SerialUintParam>(__func__, msg, modem_api_set_radio_info_report_enabled,
                                       &ModemResponseProxy::respondSetRadioInfoReportEnabled);
}

int VsQmiClient::processSetRadioInfoReportEnabledAsyncResponse(const void* data, size_t length,
                                                               RequestPtr request) const {
    return finish(__func__, data, length, request,
                  &ModemResponseProxy::respondSetRadioInfoReportEnabled);
}
