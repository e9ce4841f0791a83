// The modem itself: build texts, configurations by name, debugging, SIM-lock, restart.

#include "clients/VsQmiClientSteps.h"
#include "params/MessageIds.h"

namespace {

constexpr size_t BUILD_TEXT_MAX = 256;

}  // namespace

int VsQmiClient::finishBuildText(const char* func, const char* what, const void* data,
                                 size_t length, const SerialParam& request,
                                 Respond<const std::string&> respond) {
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
    return serveAsync<SerialVoidParam>(
            __func__, msg,
            [](const SerialVoidParam&, void* cookie) {
                return modem_get_build_time(cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondGetBuildTime);
}

int VsQmiClient::processGetBuildTimeAsyncResponse(const void* data, size_t length,
                                                  const SerialParam& request) {
    return finishBuildText(__func__, "build time", data, length, request,
                           &ModemResponseProxy::respondGetBuildTime);
}

int VsQmiClient::getBuildId(int serial) {
    return postVoid(__func__, VsMessage::GET_BUILD_ID, serial);
}

int VsQmiClient::handleGetBuildIdMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg,
            [](const SerialVoidParam&, void* cookie) {
                return modem_get_build_id(cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondGetBuildId);
}

int VsQmiClient::processGetBuildIdAsyncResponse(const void* data, size_t length,
                                                const SerialParam& request) {
    return finishBuildText(__func__, "build Id", data, length, request,
                           &ModemResponseProxy::respondGetBuildId);
}

int VsQmiClient::activateMbnByName(int serial, const std::string& name) {
    return sendRequest(serial, VsMessage::ACTIVATE_MBN_BY_NAME, name);
}

int VsQmiClient::handleActivateMbnByNameMessage(const MessagePtr& msg) {
    return serveAsync<SerialStringParam>(
            __func__, msg,
            [](const SerialStringParam& request, void* cookie) {
                return modem_api_active_mbn(request.value.c_str(), cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondActivateMbnByName);
}

int VsQmiClient::processActivateMbnByNameAsyncResponse(const void* data, size_t length,
                                                       const SerialParam& request) {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondActivateMbnByName);
}

int VsQmiClient::restoreMbn(int serial) {
    return postVoid(__func__, VsMessage::RESTORE_MBN, serial);
}

int VsQmiClient::handleRestoreMbnMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg,
            [](const SerialVoidParam&, void* cookie) {
                return modem_api_restore_mbn(cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondRestoreMbn);
}

int VsQmiClient::processRestoreMbnAsyncResponse(const void* data, size_t length,
                                                const SerialParam& request) {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondRestoreMbn);
}

int VsQmiClient::doCommonInterfaceDebug(int serial, unsigned int value) {
    LOG_I("%s: serial = %d", __func__, serial);
    return sendRequest(serial, VsMessage::DO_COMMON_INTERFACE_DEBUG, value);
}

int VsQmiClient::handleDoCommonInterfaceDebugMessage(const MessagePtr& msg) {
    return serve<SerialUintParam>(
            __func__, SYNC_TEXTS, msg,
            [](const SerialUintParam& request) {
                return modem_common_interface_debug(request.value);
            },
            &ModemResponseProxy::respondDoCommonInterfaceDebug);
}

int VsQmiClient::serveSimlockInfo(const char* func, const MessagePtr& msg,
                                  uint8_t modem_simlock_info::*field, Respond<uint8_t> respond) {
    return serve<SerialVoidParam>(
            func, ASYNC_TEXTS, msg,
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
            __func__, ASYNC_TEXTS, msg,
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
            __func__, ASYNC_TEXTS, msg,
            [](const SerialVoidParam&) { return modem_subsystem_reboot(); },
            &ModemResponseProxy::respondRebootModem);
}
