// The entry points of the requests, in the order of the interface.

#include <new>
#include <vector>

#include "params/ModemLog.h"
#include "service/ModemImpl.h"

using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Void;

namespace {

std::string fromHidl(const hidl_string& text) {
    return {text.c_str(), text.size()};
}

std::vector<uint8_t> fromHidl(const hidl_vec<uint8_t>& bytes) {
    return {bytes.data(), bytes.data() + bytes.size()};
}

template <class Integer>
Integer fromHidl(Integer value) {
    return value;
}

}  // namespace

template <class Client, class... Params, class... Payload, class... Args>
Return<void> ModemImpl::request(const char* func, int32_t serial,
                                const std::shared_ptr<Client>& client,
                                int (Client::*send)(int, Params...),
                                int (ModemResponseProxy::*respond)(int, Errno, Payload...),
                                const Args&... args) {
    LOG_I("ModemImpl::%s: serial = %d", func, serial);
    return handOver(func, serial, client, send, respond, args...);
}

template <class Client, class... Params, class... Payload, class... Args>
Return<void> ModemImpl::handOver(const char* func, int32_t serial,
                                 const std::shared_ptr<Client>& client,
                                 int (Client::*send)(int, Params...),
                                 int (ModemResponseProxy::*respond)(int, Errno, Payload...),
                                 const Args&... args) {
    Errno err = ERRNO_NOT_CONNECTED;
    try {
        err = client ? (client.get()->*send)(serial, fromHidl(args)...) : ERRNO_NOT_CONNECTED;
    } catch (const std::bad_alloc&) {
        LOG_E("ModemImpl::%s: no memory for the arguments", func);
        err = ERRNO_NO_MEMORY;
    }
    if (err != ERRNO_SUCCESS) {
        mResponseProxy->respondEmpty(respond, serial, err);
    }
    return Void();
}

Return<void> ModemImpl::switchNRNetworkMode(int32_t serial, int32_t mode) {
    return request(__func__, serial, mNasClient, &NasQmiClient::switchNRNetworkMode,
                   &ModemResponseProxy::respondSwitchNRNetworkMode, mode);
}

Return<void> ModemImpl::getNRNetworkMode(int32_t serial) {
    return request(__func__, serial, mNasClient, &NasQmiClient::getNRNetworkMode,
                   &ModemResponseProxy::respondGetNRNetworkMode);
}

Return<void> ModemImpl::getBuildTime(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getBuildTime,
                   &ModemResponseProxy::respondGetBuildTime);
}

Return<void> ModemImpl::getBuildId(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getBuildId,
                   &ModemResponseProxy::respondGetBuildId);
}

Return<void> ModemImpl::getActiveMbnInfo(int32_t serial, int32_t type) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::getActiveMbnInfo,
                   &ModemResponseProxy::respondGetActiveMbnInfo, type);
}

Return<void> ModemImpl::getMetaMbnInfo(int32_t serial, const hidl_vec<uint8_t>& configId,
                                       int32_t length) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::getMetaMbnInfo,
                   &ModemResponseProxy::respondGetMetaMbnInfo, configId, length);
}

Return<void> ModemImpl::getMbnList(int32_t serial) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::getMbnList,
                   &ModemResponseProxy::respondGetMbnList);
}

Return<void> ModemImpl::selectMbn(int32_t serial, int32_t type, const hidl_vec<uint8_t>& configId) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::selectMbn,
                   &ModemResponseProxy::respondSelectMbn, type, configId);
}

Return<void> ModemImpl::selectMbnExt(int32_t serial, int32_t type,
                                     const hidl_vec<uint8_t>& configId, int32_t length) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::selectMbnExt,
                   &ModemResponseProxy::respondSelectMbnExt, type, configId, length);
}

Return<void> ModemImpl::deleteAllMbns(int32_t serial) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::deleteAllMbns,
                   &ModemResponseProxy::respondDeleteAllMbns);
}

Return<void> ModemImpl::loadMbnConfig(int32_t serial, const hidl_vec<uint8_t>& path) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::loadMbnConfig,
                   &ModemResponseProxy::respondLoadMbnConfig, path);
}

Return<void> ModemImpl::activateMbn(int32_t serial, int32_t type) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::activateMbn,
                   &ModemResponseProxy::respondActivateMbn, type);
}

Return<void> ModemImpl::deactivateMbn(int32_t serial, int32_t type) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::deactivateMbn,
                   &ModemResponseProxy::respondDeactivateMbn, type);
}

Return<void> ModemImpl::activateRegularMbn(int32_t serial, int32_t type) {
    return request(__func__, serial, mPdcClient, &PdcQmiClient::activateRegularMbn,
                   &ModemResponseProxy::respondActivateRegularMbn, type);
}

Return<void> ModemImpl::activateMbnByName(int32_t serial, const hidl_string& name) {
    return request(__func__, serial, mVsClient, &VsQmiClient::activateMbnByName,
                   &ModemResponseProxy::respondActivateMbnByName, name);
}

Return<void> ModemImpl::restoreMbn(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::restoreMbn,
                   &ModemResponseProxy::respondRestoreMbn);
}

Return<void> ModemImpl::readNVItem(int32_t serial, int32_t item, uint8_t selector1,
                                   uint8_t selector2) {
    return request(__func__, serial, mVsClient, &VsQmiClient::readNVItem,
                   &ModemResponseProxy::respondReadNVItem, static_cast<int8_t>(selector1), item,
                   static_cast<int8_t>(selector2));
}

Return<void> ModemImpl::writeNVItem(int32_t serial, int32_t item, uint8_t selector1,
                                    uint8_t selector2, const hidl_vec<uint8_t>& data) {
    return request(__func__, serial, mVsClient, &VsQmiClient::writeNVItem,
                   &ModemResponseProxy::respondWriteNVItem, static_cast<int8_t>(selector1), item,
                   static_cast<int8_t>(selector2), data);
}

Return<void> ModemImpl::verifyNV(int32_t serial, int32_t item, const hidl_vec<uint8_t>& data) {
    return request(__func__, serial, mVsClient, &VsQmiClient::verifyNV,
                   &ModemResponseProxy::respondVerifyNV, item, data);
}

Return<void> ModemImpl::readEfsFile(int32_t serial, int32_t file, uint8_t subSelector) {
    return request(__func__, serial, mVsClient, &VsQmiClient::readEfsFile,
                   &ModemResponseProxy::respondReadEfsFile, file, subSelector);
}

Return<void> ModemImpl::writeEfsFile(int32_t serial, int32_t file, uint8_t subSelector,
                                     const hidl_vec<uint8_t>& data) {
    return request(__func__, serial, mVsClient, &VsQmiClient::writeEfsFile,
                   &ModemResponseProxy::respondWriteEfsFile, file, subSelector, data);
}

Return<void> ModemImpl::deleteEfsFile(int32_t serial, int32_t file, uint8_t subSelector) {
    return request(__func__, serial, mVsClient, &VsQmiClient::deleteEfsFile,
                   &ModemResponseProxy::respondDeleteEfsFile, file, subSelector);
}

Return<void> ModemImpl::deleteEfsFileDir(int32_t serial, int32_t directory) {
    return request(__func__, serial, mVsClient, &VsQmiClient::deleteEfsFileDir,
                   &ModemResponseProxy::respondDeleteEfsFileDir, directory);
}

Return<void> ModemImpl::setAgpsTestMode(int32_t serial, uint32_t mode) {
    return request(__func__, serial, mVsClient, &VsQmiClient::setAgpsTestMode,
                   &ModemResponseProxy::respondSetAgpsTestMode, mode);
}

Return<void> ModemImpl::getAgpsTestMode(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getAgpsTestMode,
                   &ModemResponseProxy::respondGetAgpsTestMode);
}

Return<void> ModemImpl::getModemPowerSaveMode(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getModemPowerSaveMode,
                   &ModemResponseProxy::respondGetModemPowerSaveMode);
}

Return<void> ModemImpl::setModemPowerSaveMode(int32_t serial, uint8_t mode) {
    return request(__func__, serial, mVsClient, &VsQmiClient::setModemPowerSaveMode,
                   &ModemResponseProxy::respondSetModemPowerSaveMode, mode);
}

Return<void> ModemImpl::setModemPowerSaveStatus(int32_t serial, uint8_t status) {
    return request(__func__, serial, mVsClient, &VsQmiClient::setModemPowerSaveStatus,
                   &ModemResponseProxy::respondSetModemPowerSaveStatus, status);
}

Return<void> ModemImpl::setModemProperty(int32_t serial, const hidl_string& name,
                                         const hidl_string& value) {
    return request(__func__, serial, mVsClient, &VsQmiClient::setModemProperty,
                   &ModemResponseProxy::respondSetModemProperty, name, value);
}

Return<void> ModemImpl::getModemProperty(int32_t serial, const hidl_string& name) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getModemProperty,
                   &ModemResponseProxy::respondGetModemProperty, name);
}

Return<void> ModemImpl::deleteModemProperty(int32_t serial, const hidl_string& name) {
    return request(__func__, serial, mVsClient, &VsQmiClient::deleteModemProperty,
                   &ModemResponseProxy::respondDeleteModemProperty, name);
}

Return<void> ModemImpl::doCommonInterfaceDebug(int32_t serial, uint32_t value) {
    return request(__func__, serial, mVsClient, &VsQmiClient::doCommonInterfaceDebug,
                   &ModemResponseProxy::respondDoCommonInterfaceDebug, value);
}

Return<void> ModemImpl::readPrl(int32_t serial, uint8_t selector) {
    return request(__func__, serial, mVsClient, &VsQmiClient::readPrl,
                   &ModemResponseProxy::respondReadPrl, selector);
}

Return<void> ModemImpl::writePrl(int32_t serial, uint8_t selector, const hidl_vec<uint8_t>& data) {
    return request(__func__, serial, mVsClient, &VsQmiClient::writePrl,
                   &ModemResponseProxy::respondWritePrl, selector, data);
}

Return<void> ModemImpl::getSimlockInfoStatus(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getSimlockInfoStatus,
                   &ModemResponseProxy::respondGetSimlockInfoStatus);
}

Return<void> ModemImpl::getSimlockInfoCategory(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getSimlockInfoCategory,
                   &ModemResponseProxy::respondGetSimlockInfoCategory);
}

Return<void> ModemImpl::getSimlockInfoNumberRetriesRemain(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getSimlockInfoNumberRetriesRemain,
                   &ModemResponseProxy::respondGetSimlockInfoNumberRetriesRemain);
}

Return<void> ModemImpl::getSimlockFuseStatus(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getSimlockFuseStatus,
                   &ModemResponseProxy::respondGetSimlockFuseStatus);
}

Return<void> ModemImpl::rebootModem(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::rebootModem,
                   &ModemResponseProxy::respondRebootModem);
}

Return<void> ModemImpl::getBandsInfo(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::getBandsInfo,
                   &ModemResponseProxy::respondGetBandsInfo);
}

Return<void> ModemImpl::removeRatMask(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::removeRatMask,
                   &ModemResponseProxy::respondRemoveRatMask);
}

Return<void> ModemImpl::abortRRCConnection(int32_t serial) {
    return request(__func__, serial, mVsClient, &VsQmiClient::abortRRCConnection,
                   &ModemResponseProxy::respondAbortRRCConnection);
}

Return<void> ModemImpl::setRadioInfoReportEnabled(int32_t serial, uint32_t enabled) {
    return request(__func__, serial, mVsClient, &VsQmiClient::setRadioInfoReportEnabled,
                   &ModemResponseProxy::respondSetRadioInfoReportEnabled, enabled);
}

Return<void> ModemImpl::setVoNRMode(int32_t serial, int32_t mode) {
    return request(__func__, serial, mNasClient, &NasQmiClient::setVoNRMode,
                   &ModemResponseProxy::respondSetVoNRMode, mode);
}

Return<void> ModemImpl::getVoNRMode(int32_t serial) {
    return request(__func__, serial, mNasClient, &NasQmiClient::getVoNRMode,
                   &ModemResponseProxy::respondGetVoNRMode);
}

Return<void> ModemImpl::isImsProfileNormal(int32_t serial) {
    return request(__func__, serial, mWdsClient, &WdsQmiClient::isImsProfileNormal,
                   &ModemResponseProxy::respondIsImsProfileNormal);
}

Return<void> ModemImpl::deprioritizeNr(int32_t serial, int32_t mode) {
    return request(__func__, serial, mNasClient, &NasQmiClient::deprioritizeNr,
                   &ModemResponseProxy::respondDeprioritizeNr, mode);
}

Return<void> ModemImpl::deleteImsProfile(int32_t serial) {
    return request(__func__, serial, mWdsClient, &WdsQmiClient::deleteImsProfile,
                   &ModemResponseProxy::respondDeleteImsProfile);
}

Return<void> ModemImpl::setSarState(int32_t serial, int32_t state) {
    LOG_I("ModemImpl::%s: serial = %d, state = %d", __func__, serial, state);
    return handOver(__func__, serial, mSarClient, &SarQmiClient::setSarState,
                    &ModemResponseProxy::respondSetSarState, state);
}

Return<void> ModemImpl::getOperatingMode(int32_t serial) {
    return request(__func__, serial, mDmsClient, &DmsQmiClient::getOperatingMode,
                   &ModemResponseProxy::respondGetOperatingMode);
}

Return<void> ModemImpl::setOperatingMode(int32_t serial, int32_t mode) {
    return request(__func__, serial, mDmsClient, &DmsQmiClient::setOperatingMode,
                   &ModemResponseProxy::respondSetOperatingMode, mode);
}

Return<void> ModemImpl::sendLogControlResp(int32_t serial) {
    return request(__func__, serial, mAtClient, &AtQmiClient::sendLogControlResp,
                   &ModemResponseProxy::respondSendLogControlResp);
}
