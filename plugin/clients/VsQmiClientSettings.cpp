// Settings of the modem: AGPS test mode, power saving, properties.

#include "clients/CheckedCopy.h"
#include "clients/VsQmiClientSteps.h"
#include "params/MessageIds.h"
#include "params/Params.h"

namespace {

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

int VsQmiClient::setAgpsTestMode(int serial, unsigned int mode) {
    LOG_I("%s: serial = %d, mode = %u", __func__, serial, mode);
    return sendRequest(serial, VsMessage::SET_AGPS_TEST_MODE, mode);
}

int VsQmiClient::handleSetAgpsTestModeMessage(const MessagePtr& msg) {
    return serveAsync<SerialUintParam>(
            __func__, msg,
            [](const SerialUintParam& request, void* cookie) {
                return modem_api_set_agps_test_mode(request.value, cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondSetAgpsTestMode);
}

int VsQmiClient::processSetAgpsTestModeAsyncResponse(const void* data, size_t length,
                                                     const SerialParam& request) {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondSetAgpsTestMode);
}

int VsQmiClient::getAgpsTestMode(int serial) {
    return postVoid(__func__, VsMessage::GET_AGPS_TEST_MODE, serial);
}

int VsQmiClient::handleGetAgpsTestModeMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg,
            [](const SerialVoidParam&, void* cookie) {
                return modem_api_get_agps_test_mode(cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondGetAgpsTestMode);
}

int VsQmiClient::processGetAgpsTestModeAsyncResponse(const void* data, size_t length,
                                                     const SerialParam& request) {
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
    return serveAsync<SerialVoidParam>(
            __func__, msg,
            [](const SerialVoidParam&, void* cookie) {
                return modem_api_get_power_save_mode(cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondGetModemPowerSaveMode);
}

int VsQmiClient::processGetModemPowerSaveModeAsyncResponse(const void* data, size_t length,
                                                           const SerialParam& request) {
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
    return serveAsync<SerialByteParam>(
            __func__, msg,
            [](const SerialByteParam& request, void* cookie) {
                return modem_api_set_power_save_mode(request.value, cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondSetModemPowerSaveMode);
}

int VsQmiClient::processSetModemPowerSaveModeAsyncResponse(const void* data, size_t length,
                                                           const SerialParam& request) {
    return finish(__func__, data, length, request,
                  &ModemResponseProxy::respondSetModemPowerSaveMode);
}

int VsQmiClient::setModemPowerSaveStatus(int serial, unsigned char status) {
    LOG_I("%s: serial = %d, status = %u", __func__, serial, status);
    return sendRequest(serial, VsMessage::SET_MODEM_POWER_SAVE_STATUS, status);
}

int VsQmiClient::handleSetModemPowerSaveStatusMessage(const MessagePtr& msg) {
    return serveAsync<SerialByteParam>(
            __func__, msg,
            [](const SerialByteParam& request, void* cookie) {
                return modem_api_set_power_save_status(request.value, cookie,
                                                       modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondSetModemPowerSaveStatus);
}

int VsQmiClient::processSetModemPowerSaveStatusAsyncResponse(const void* data, size_t length,
                                                             const SerialParam& request) {
    return finish(__func__, data, length, request,
                  &ModemResponseProxy::respondSetModemPowerSaveStatus);
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
                                                      const SerialParam& request) {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondSetModemProperty);
}

int VsQmiClient::getModemProperty(int serial, const std::string& name) {
    LOG_I("%s: serial = %d", __func__, serial);
    return sendRequest(serial, VsMessage::GET_MODEM_PROPERTY, name);
}

int VsQmiClient::handleGetModemPropertyMessage(const MessagePtr& msg) {
    return serveAsync<SerialStringParam>(
            __func__, msg,
            [](const SerialStringParam& request, void* cookie) {
                return modem_api_get_modem_property(request.value.c_str(), cookie,
                                                    modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondGetModemProperty);
}

int VsQmiClient::processGetModemPropertyAsyncResponse(const void* data, size_t length,
                                                      const SerialParam& request) {
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
            __func__, SYNC_TEXTS, msg,
            [](const SerialStringParam& request) {
                return modem_api_delete_modem_property_sync(request.value.c_str());
            },
            &ModemResponseProxy::respondDeleteModemProperty);
}
