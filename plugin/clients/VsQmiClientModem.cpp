// The modem itself, and its settings: AGPS test mode, power saving, properties.

#include <cstring>

#include "clients/CheckedCopy.h"
#include "clients/VsQmiClient.h"
#include "params/MessageIds.h"
#include "params/Params.h"

namespace {

/** The text in a field of a modem record: it ends at the first NUL, or at the field's end. */
template <size_t Size>
std::string textOf(const char (&field)[Size], size_t length = Size) {
    return std::string(field, strnlen(field, std::min(length, Size)));
}

constexpr size_t BUILD_TEXT_MAX = 256;

/**
 * The record as the modem takes it. Lengths are not checked against the fields: the end of a longer
 * name lies in the fields behind it, as far as the value and lengths do not overwrite it. A text
 * that reaches beyond the record stops the process.
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

}  // namespace

int VsQmiClient::finishBuildText(const char* func, const char* what, const Completion& completion,
                                 Respond<const std::string&> respond) {
    return finish(func, completion, respond, [&](const auto& payload, std::string& text) {
        const size_t reported = payload.build.length;
        if (reported >= BUILD_TEXT_MAX) {
            LOG_E("%s: %s string length %zu exceed max size, can't report", func, what, reported);
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
    return serveAsync<SerialVoidParam>(
            __func__, msg, &Proxy::respondGetBuildTime, [](const auto&, void* cookie) {
                return modem_get_build_time(cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processGetBuildTimeAsyncResponse(const Completion& completion) {
    return finishBuildText(__func__, "build time", completion, &Proxy::respondGetBuildTime);
}

int VsQmiClient::getBuildId(int serial) {
    return postVoid(__func__, VsMessage::GET_BUILD_ID, serial);
}

int VsQmiClient::handleGetBuildIdMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(__func__, msg, &Proxy::respondGetBuildId,
                                       [](const auto&, void* cookie) {
                                           return modem_get_build_id(cookie, modemApiAsyncCallback);
                                       });
}

int VsQmiClient::processGetBuildIdAsyncResponse(const Completion& completion) {
    return finishBuildText(__func__, "build Id", completion, &Proxy::respondGetBuildId);
}

int VsQmiClient::activateMbnByName(int serial, const std::string& name) {
    return sendRequest(serial, VsMessage::ACTIVATE_MBN_BY_NAME, name);
}

int VsQmiClient::handleActivateMbnByNameMessage(const MessagePtr& msg) {
    return serveAsync<SerialStringParam>(
            __func__, msg, &Proxy::respondActivateMbnByName, [](const auto& request, void* cookie) {
                return modem_api_active_mbn(request.value.c_str(), cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processActivateMbnByNameAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondActivateMbnByName);
}

int VsQmiClient::restoreMbn(int serial) {
    return postVoid(__func__, VsMessage::RESTORE_MBN, serial);
}

int VsQmiClient::handleRestoreMbnMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg, &Proxy::respondRestoreMbn, [](const auto&, void* cookie) {
                return modem_api_restore_mbn(cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processRestoreMbnAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondRestoreMbn);
}

int VsQmiClient::doCommonInterfaceDebug(int serial, unsigned int value) {
    LOG_I("%s: serial = %d", __func__, serial);
    return sendRequest(serial, VsMessage::DO_COMMON_INTERFACE_DEBUG, value);
}

int VsQmiClient::handleDoCommonInterfaceDebugMessage(const MessagePtr& msg) {
    return serve<SerialUintParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondDoCommonInterfaceDebug,
            [](const auto& request) { return modem_common_interface_debug(request.value); });
}

int VsQmiClient::serveSimlockInfo(const char* func, const MessagePtr& msg,
                                  uint8_t modem_simlock_info::*field, Respond<uint8_t> respond) {
    return serve<SerialVoidParam>(func, ASYNC_TEXTS, msg, respond,
                                  [field](const auto&, uint8_t& value) {
                                      modem_simlock_info info{};
                                      const int result = fetch(modem_api_get_simlock_info, info);
                                      value = info.*field;
                                      return result;
                                  });
}

int VsQmiClient::getSimlockInfoStatus(int serial) {
    return postVoid(__func__, VsMessage::GET_SIMLOCK_INFO_STATUS, serial);
}

int VsQmiClient::handleGetSimlockInfoStateMessage(const MessagePtr& msg) {
    return serveSimlockInfo(__func__, msg, &modem_simlock_info::status,
                            &Proxy::respondGetSimlockInfoStatus);
}

int VsQmiClient::getSimlockInfoCategory(int serial) {
    return postVoid(__func__, VsMessage::GET_SIMLOCK_INFO_CATEGORY, serial);
}

int VsQmiClient::handleGetSimlockInfoCategoryMessage(const MessagePtr& msg) {
    return serveSimlockInfo(__func__, msg, &modem_simlock_info::category,
                            &Proxy::respondGetSimlockInfoCategory);
}

int VsQmiClient::getSimlockInfoNumberRetriesRemain(int serial) {
    return postVoid(__func__, VsMessage::GET_SIMLOCK_INFO_NUMBER_RETRIES_REMAIN, serial);
}

int VsQmiClient::handleGetSimlockInfoNumberRetriesRemainMessage(const MessagePtr& msg) {
    return serveSimlockInfo(__func__, msg, &modem_simlock_info::retries_remaining,
                            &Proxy::respondGetSimlockInfoNumberRetriesRemain);
}

int VsQmiClient::getSimlockFuseStatus(int serial) {
    return postVoid(__func__, VsMessage::GET_SIMLOCK_FUSE_STATUS, serial);
}

int VsQmiClient::handleGetSimlockFuseStateMessage(const MessagePtr& msg) {
    return serve<SerialVoidParam>(__func__, ASYNC_TEXTS, msg, &Proxy::respondGetSimlockFuseStatus,
                                  [](const auto&, uint32_t& status) {
                                      return fetch(modem_api_get_simlock_fuse_status, status);
                                  });
}

int VsQmiClient::rebootModem(int serial) {
    return postVoid(__func__, VsMessage::REBOOT_MODEM, serial);
}

int VsQmiClient::handleRebootModemMessage(const MessagePtr& msg) {
    return serve<SerialVoidParam>(__func__, ASYNC_TEXTS, msg, &Proxy::respondRebootModem,
                                  [](const auto&) { return modem_subsystem_reboot(); });
}

// ---- Settings ----------------------------------------------------------------------------------

int VsQmiClient::setAgpsTestMode(int serial, unsigned int mode) {
    LOG_I("%s: serial = %d, mode = %u", __func__, serial, mode);
    return sendRequest(serial, VsMessage::SET_AGPS_TEST_MODE, mode);
}

int VsQmiClient::handleSetAgpsTestModeMessage(const MessagePtr& msg) {
    return serveAsync<SerialUintParam>(
            __func__, msg, &Proxy::respondSetAgpsTestMode, [](const auto& request, void* cookie) {
                return modem_api_set_agps_test_mode(request.value, cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processSetAgpsTestModeAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondSetAgpsTestMode);
}

int VsQmiClient::getAgpsTestMode(int serial) {
    return postVoid(__func__, VsMessage::GET_AGPS_TEST_MODE, serial);
}

int VsQmiClient::handleGetAgpsTestModeMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg, &Proxy::respondGetAgpsTestMode, [](const auto&, void* cookie) {
                return modem_api_get_agps_test_mode(cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processGetAgpsTestModeAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondGetAgpsTestMode,
                  [](const auto& payload, uint32_t& mode) {
                      mode = payload.agps_test_mode;
                      return ERRNO_SUCCESS;
                  });
}

int VsQmiClient::getModemPowerSaveMode(int serial) {
    return postVoid(__func__, VsMessage::GET_MODEM_POWER_SAVE_MODE, serial);
}

int VsQmiClient::handleGetModemPowerSaveModeMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg, &Proxy::respondGetModemPowerSaveMode, [](const auto&, void* cookie) {
                return modem_api_get_power_save_mode(cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processGetModemPowerSaveModeAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondGetModemPowerSaveMode,
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
    return serveAsync<SerialByteParam>(__func__, msg, &Proxy::respondSetModemPowerSaveMode,
                                       [](const auto& request, void* cookie) {
                                           return modem_api_set_power_save_mode(
                                                   request.value, cookie, modemApiAsyncCallback);
                                       });
}

int VsQmiClient::processSetModemPowerSaveModeAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondSetModemPowerSaveMode);
}

int VsQmiClient::setModemPowerSaveStatus(int serial, unsigned char status) {
    LOG_I("%s: serial = %d, status = %u", __func__, serial, status);
    return sendRequest(serial, VsMessage::SET_MODEM_POWER_SAVE_STATUS, status);
}

int VsQmiClient::handleSetModemPowerSaveStatusMessage(const MessagePtr& msg) {
    return serveAsync<SerialByteParam>(__func__, msg, &Proxy::respondSetModemPowerSaveStatus,
                                       [](const auto& request, void* cookie) {
                                           return modem_api_set_power_save_status(
                                                   request.value, cookie, modemApiAsyncCallback);
                                       });
}

int VsQmiClient::processSetModemPowerSaveStatusAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondSetModemPowerSaveStatus);
}

int VsQmiClient::setModemProperty(int serial, const std::string& name, const std::string& value) {
    LOG_I("%s: serial = %d", __func__, serial);
    return post<ModemPropertyParam>(PostTexts::BY_NAME_SHORT, __func__,
                                    VsMessage::SET_MODEM_PROPERTY, serial, name, value);
}

int VsQmiClient::handleSetModemPropertyMessage(const MessagePtr& msg) {
    const char* func = __func__;
    return serveAsync<ModemPropertyParam>(
            func, msg, &Proxy::respondSetModemProperty, [func](const auto& request, void* cookie) {
                const modem_property_record record = propertyRecord(func, request);
                return modem_api_set_modem_property(&record, cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processSetModemPropertyAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondSetModemProperty);
}

int VsQmiClient::getModemProperty(int serial, const std::string& name) {
    LOG_I("%s: serial = %d", __func__, serial);
    return sendRequest(serial, VsMessage::GET_MODEM_PROPERTY, name);
}

int VsQmiClient::handleGetModemPropertyMessage(const MessagePtr& msg) {
    return serveAsync<SerialStringParam>(
            __func__, msg, &Proxy::respondGetModemProperty, [](const auto& request, void* cookie) {
                return modem_api_get_modem_property(request.value.c_str(), cookie,
                                                    modemApiAsyncCallback);
            });
}

int VsQmiClient::processGetModemPropertyAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondGetModemProperty,
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
            __func__, SYNC_TEXTS, msg, &Proxy::respondDeleteModemProperty, [](const auto& request) {
                return modem_api_delete_modem_property_sync(request.value.c_str());
            });
}
