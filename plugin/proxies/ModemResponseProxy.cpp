#include "proxies/ModemResponseProxy.h"

#include <shared_mutex>

#include "params/ModemLog.h"
#include "proxies/HidlConversions.h"
#include "proxies/SendStatus.h"

using android::sp;
using hidl_conversions::toHidl;
using vendor::lyr::modem::V1_0::IModemResponse;

uint32_t convertToResponseError(Errno err) {
    return err == ERRNO_SUCCESS || err == ERRNO_UNSUPPORTED ? err : ERRNO_FAILED;
}

sp<IModemResponse> ModemResponseProxy::getCallback() const {
    std::shared_lock lock(mLock);
    return IModemResponse::castFrom(mCallback, false);
}

template <class Method, class... Payload>
int ModemResponseProxy::respond(const char* func, int serial, Errno err, Method method,
                                const Payload&... payload) const {
    LOG_I("%s: serial = %d, err = %d", func, serial, err);
    return send(func, serial, err, method, payload...);
}

template <class Method, class Value>
int ModemResponseProxy::respondNamed(const char* func, const char* name, int serial, Errno err,
                                     Method method, Value value) const {
    LOG_I("%s: serial = %d, err = %d, %s = %d", func, serial, err, name, static_cast<int>(value));
    return send(func, serial, err, method, value);
}

template <class Method, class... Payload>
int ModemResponseProxy::send(const char* func, int serial, Errno err, Method method,
                             const Payload&... payload) const {
    const sp<IModemResponse> callback = getCallback();
    if (callback == nullptr) {
        LOG_E("%s: respCb null, can't send response", func);
        return ERRNO_NOT_CONNECTED;
    }
    const ResponseInfo info{0, serial, convertToResponseError(err)};
    return sendStatus(func, [&] { return (callback.get()->*method)(info, toHidl(payload)...); });
}

int ModemResponseProxy::respondSwitchNRNetworkMode(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::switchNRNetworkModeResponse);
}

int ModemResponseProxy::respondGetNRNetworkMode(int serial, Errno err, uint32_t mode) {
    return respondNamed(__func__, "mode", serial, err, &IModemResponse::getNRNetworkModeResponse,
                        mode);
}

int ModemResponseProxy::respondGetBuildTime(int serial, Errno err, const std::string& buildTime) {
    return respond(__func__, serial, err, &IModemResponse::getBuildTimeResponse, buildTime);
}

int ModemResponseProxy::respondGetActiveMbnInfo(int serial, Errno err, const PdcMbnInfo& info) {
    return respond(__func__, serial, err, &IModemResponse::getActiveMbnInfoResponse, info);
}

int ModemResponseProxy::respondGetMetaMbnInfo(int serial, Errno err, const PdcMbnInfo& info) {
    return respond(__func__, serial, err, &IModemResponse::getMetaMbnInfoResponse, info);
}

int ModemResponseProxy::respondGetMbnList(int serial, Errno err,
                                          const std::vector<std::string>& mbns) {
    return respond(__func__, serial, err, &IModemResponse::getMbnListResponse, mbns);
}

int ModemResponseProxy::respondSelectMbn(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::selectMbnResponse);
}

int ModemResponseProxy::respondSelectMbnExt(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::selectMbnExtResponse);
}

int ModemResponseProxy::respondDeleteAllMbns(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::deleteAllMbnsResponse);
}

int ModemResponseProxy::respondLoadMbnConfig(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::loadMbnConfigResponse);
}

int ModemResponseProxy::respondActivateMbn(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::activateMbnResponse);
}

int ModemResponseProxy::respondDeactivateMbn(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::deactivateMbnResponse);
}

int ModemResponseProxy::respondActivateRegularMbn(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::activateRegularMbnResponse);
}

int ModemResponseProxy::respondActivateMbnByName(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::activateMbnByNameResponse);
}

int ModemResponseProxy::respondRestoreMbn(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::restoreMbnResponse);
}

int ModemResponseProxy::respondReadNVItem(int serial, Errno err, const std::vector<uint8_t>& data) {
    return respond(__func__, serial, err, &IModemResponse::readNVItemResponse, data);
}

int ModemResponseProxy::respondWriteNVItem(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::writeNVItemResponse);
}

int ModemResponseProxy::respondVerifyNV(int serial, Errno err, uint8_t verified) {
    return respond(__func__, serial, err, &IModemResponse::verifyNVResponse, verified);
}

int ModemResponseProxy::respondReadEfsFile(int serial, Errno err,
                                           const std::vector<uint8_t>& data) {
    return respond(__func__, serial, err, &IModemResponse::readEfsFileResponse, data);
}

int ModemResponseProxy::respondWriteEfsFile(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::writeEfsFileResponse);
}

int ModemResponseProxy::respondDeleteEfsFile(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::deleteEfsFileResponse);
}

int ModemResponseProxy::respondDeleteEfsFileDir(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::deleteEfsFileDirResponse);
}

int ModemResponseProxy::respondSetAgpsTestMode(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::setAgpsTestModeResponse);
}

int ModemResponseProxy::respondGetAgpsTestMode(int serial, Errno err, uint32_t mode) {
    return respond(__func__, serial, err, &IModemResponse::getAgpsTestModeResponse, mode);
}

int ModemResponseProxy::respondSetModemPowerSaveMode(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::setModemPowerSaveModeResponse);
}

int ModemResponseProxy::respondGetModemPowerSaveMode(int serial, Errno err, uint8_t mode) {
    return respond(__func__, serial, err, &IModemResponse::getModemPowerSaveModeResponse, mode);
}

int ModemResponseProxy::respondSetModemPowerSaveStatus(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::setModemPowerSaveStatusResponse);
}

int ModemResponseProxy::respondSetModemProperty(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::setModemPropertyResponse);
}

int ModemResponseProxy::respondGetModemProperty(int serial, Errno err, const std::string& value) {
    return respond(__func__, serial, err, &IModemResponse::getModemPropertyResponse, value);
}

int ModemResponseProxy::respondDeleteModemProperty(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::deleteModemPropertyResponse);
}

int ModemResponseProxy::respondDoCommonInterfaceDebug(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::doCommonInterfaceDebugResponse);
}

int ModemResponseProxy::respondGetBuildId(int serial, Errno err, const std::string& buildId) {
    return respond(__func__, serial, err, &IModemResponse::getBuildIdResponse, buildId);
}

int ModemResponseProxy::respondReadPrl(int serial, Errno err, const std::vector<uint8_t>& data) {
    return respond(__func__, serial, err, &IModemResponse::readPrlResponse, data);
}

int ModemResponseProxy::respondWritePrl(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::writePrlResponse);
}

int ModemResponseProxy::respondGetSimlockInfoStatus(int serial, Errno err, uint8_t status) {
    return respond(__func__, serial, err, &IModemResponse::getSimlockInfoStatusResponse, status);
}

int ModemResponseProxy::respondGetSimlockInfoCategory(int serial, Errno err, uint8_t category) {
    return respond(__func__, serial, err, &IModemResponse::getSimlockInfoCategoryResponse,
                   category);
}

int ModemResponseProxy::respondGetSimlockInfoNumberRetriesRemain(int serial, Errno err,
                                                                 uint8_t retries) {
    return respond(__func__, serial, err,
                   &IModemResponse::getSimlockInfoNumberRetriesRemainResponse, retries);
}

int ModemResponseProxy::respondGetSimlockFuseStatus(int serial, Errno err, uint32_t status) {
    return respond(__func__, serial, err, &IModemResponse::getSimlockFuseStatusResponse, status);
}

int ModemResponseProxy::respondRebootModem(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::rebootModemResponse);
}

int ModemResponseProxy::respondGetBandsInfo(int serial, Errno err, const BandsInfoType& bands) {
    return respond(__func__, serial, err, &IModemResponse::getBandsInfoResponse, bands);
}

int ModemResponseProxy::respondRemoveRatMask(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::removeRatMaskResponse);
}

int ModemResponseProxy::respondAbortRRCConnection(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::abortRRCConnectionResponse);
}

int ModemResponseProxy::respondSetRadioInfoReportEnabled(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::setRadioInfoReportEnabledResponse);
}

int ModemResponseProxy::respondSetVoNRMode(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::setVoNRModeResponse);
}

int ModemResponseProxy::respondGetVoNRMode(int serial, Errno err, uint32_t mode) {
    return respondNamed(__func__, "mode", serial, err, &IModemResponse::getVoNRModeResponse, mode);
}

int ModemResponseProxy::respondIsImsProfileNormal(int serial, Errno err, uint32_t result) {
    return respondNamed(__func__, "result", serial, err,
                        &IModemResponse::isImsProfileNormalResponse, result);
}

int ModemResponseProxy::respondDeprioritizeNr(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::deprioritizeNrResponse);
}

int ModemResponseProxy::respondDeleteImsProfile(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::deleteImsProfileResponse);
}

int ModemResponseProxy::respondSetSarState(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::setSarStateResponse);
}

int ModemResponseProxy::respondGetOperatingMode(int serial, Errno err, int32_t mode) {
    return respondNamed(__func__, "mode", serial, err, &IModemResponse::getOperatingModeResponse,
                        mode);
}

int ModemResponseProxy::respondSetOperatingMode(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::setOperatingModeResponse);
}

int ModemResponseProxy::respondSendLogControlResp(int serial, Errno err) {
    return respond(__func__, serial, err, &IModemResponse::sendLogControlRespResponse);
}
