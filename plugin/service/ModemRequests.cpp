// The entry points of the requests, in the order of the interface.

#include <new>
#include <vector>

#include "params/ModemLog.h"
#include "service/ModemImpl.h"

using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Void;
using Proxy = ModemResponseProxy;

namespace {

std::string fromHidl(const hidl_string& text) {
    return {text.c_str(), text.size()};
}

std::vector<uint8_t> fromHidl(const hidl_vec<uint8_t>& bytes) {
    return {bytes.data(), bytes.data() + bytes.size()};
}

}  // namespace

Errno ModemImpl::handOver(const char* func, QmiClient* client, FunctionRef<int()> send) {
    if (client == nullptr) {
        return ERRNO_NOT_CONNECTED;
    }
    client->countTaken();
    Errno err = ERRNO_NO_MEMORY;
    try {
        err = send();
    } catch (const std::bad_alloc&) {
        LOG_E("ModemImpl::%s: no memory for the arguments", func);
    }
    if (err != ERRNO_SUCCESS) {
        client->countRefused();
    }
    return err;
}

template <class... Payload>
Return<void> ModemImpl::requestUnlogged(const char* func, int32_t serial, QmiClient* client,
                                        Respond<Payload...> refuse, FunctionRef<int()> send) {
    const Errno err = handOver(func, client, send);
    if (err != ERRNO_SUCCESS) {
        (mResponseProxy.get()->*refuse)(serial, err, std::decay_t<Payload>{}...);
    }
    return Void();
}

template <class... Payload>
Return<void> ModemImpl::request(const char* func, int32_t serial, QmiClient* client,
                                Respond<Payload...> refuse, FunctionRef<int()> send) {
    LOG_I("ModemImpl::%s: serial = %d", func, serial);
    return requestUnlogged(func, serial, client, refuse, send);
}

Return<void> ModemImpl::switchNRNetworkMode(int32_t serial, int32_t mode) {
    return request(__func__, serial, mNasClient.get(), &Proxy::respondSwitchNRNetworkMode,
                   [&] { return mNasClient->switchNRNetworkMode(serial, mode); });
}

Return<void> ModemImpl::getNRNetworkMode(int32_t serial) {
    return request(__func__, serial, mNasClient.get(), &Proxy::respondGetNRNetworkMode,
                   [&] { return mNasClient->getNRNetworkMode(serial); });
}

Return<void> ModemImpl::getBuildTime(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondGetBuildTime,
                   [&] { return mVsClient->getBuildTime(serial); });
}

Return<void> ModemImpl::getBuildId(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondGetBuildId,
                   [&] { return mVsClient->getBuildId(serial); });
}

Return<void> ModemImpl::getActiveMbnInfo(int32_t serial, int32_t type) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondGetActiveMbnInfo,
                   [&] { return mPdcClient->getActiveMbnInfo(serial, type); });
}

Return<void> ModemImpl::getMetaMbnInfo(int32_t serial, const hidl_vec<uint8_t>& configId,
                                       int32_t length) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondGetMetaMbnInfo,
                   [&] { return mPdcClient->getMetaMbnInfo(serial, fromHidl(configId), length); });
}

Return<void> ModemImpl::getMbnList(int32_t serial) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondGetMbnList,
                   [&] { return mPdcClient->getMbnList(serial); });
}

Return<void> ModemImpl::selectMbn(int32_t serial, int32_t type, const hidl_vec<uint8_t>& configId) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondSelectMbn,
                   [&] { return mPdcClient->selectMbn(serial, type, fromHidl(configId)); });
}

Return<void> ModemImpl::selectMbnExt(int32_t serial, int32_t type,
                                     const hidl_vec<uint8_t>& configId, int32_t length) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondSelectMbnExt, [&] {
        return mPdcClient->selectMbnExt(serial, type, fromHidl(configId), length);
    });
}

Return<void> ModemImpl::deleteAllMbns(int32_t serial) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondDeleteAllMbns,
                   [&] { return mPdcClient->deleteAllMbns(serial); });
}

Return<void> ModemImpl::loadMbnConfig(int32_t serial, const hidl_vec<uint8_t>& path) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondLoadMbnConfig,
                   [&] { return mPdcClient->loadMbnConfig(serial, fromHidl(path)); });
}

Return<void> ModemImpl::activateMbn(int32_t serial, int32_t type) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondActivateMbn,
                   [&] { return mPdcClient->activateMbn(serial, type); });
}

Return<void> ModemImpl::deactivateMbn(int32_t serial, int32_t type) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondDeactivateMbn,
                   [&] { return mPdcClient->deactivateMbn(serial, type); });
}

Return<void> ModemImpl::activateRegularMbn(int32_t serial, int32_t type) {
    return request(__func__, serial, mPdcClient.get(), &Proxy::respondActivateRegularMbn,
                   [&] { return mPdcClient->activateRegularMbn(serial, type); });
}

Return<void> ModemImpl::activateMbnByName(int32_t serial, const hidl_string& name) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondActivateMbnByName,
                   [&] { return mVsClient->activateMbnByName(serial, fromHidl(name)); });
}

Return<void> ModemImpl::restoreMbn(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondRestoreMbn,
                   [&] { return mVsClient->restoreMbn(serial); });
}

Return<void> ModemImpl::readNVItem(int32_t serial, int32_t item, uint8_t selector1,
                                   uint8_t selector2) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondReadNVItem, [&] {
        return mVsClient->readNVItem(serial, static_cast<int8_t>(selector1), item,
                                     static_cast<int8_t>(selector2));
    });
}

Return<void> ModemImpl::writeNVItem(int32_t serial, int32_t item, uint8_t selector1,
                                    uint8_t selector2, const hidl_vec<uint8_t>& data) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondWriteNVItem, [&] {
        return mVsClient->writeNVItem(serial, static_cast<int8_t>(selector1), item,
                                      static_cast<int8_t>(selector2), fromHidl(data));
    });
}

Return<void> ModemImpl::verifyNV(int32_t serial, int32_t item, const hidl_vec<uint8_t>& data) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondVerifyNV,
                   [&] { return mVsClient->verifyNV(serial, item, fromHidl(data)); });
}

Return<void> ModemImpl::readEfsFile(int32_t serial, int32_t file, uint8_t subSelector) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondReadEfsFile,
                   [&] { return mVsClient->readEfsFile(serial, file, subSelector); });
}

Return<void> ModemImpl::writeEfsFile(int32_t serial, int32_t file, uint8_t subSelector,
                                     const hidl_vec<uint8_t>& data) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondWriteEfsFile, [&] {
        return mVsClient->writeEfsFile(serial, file, subSelector, fromHidl(data));
    });
}

Return<void> ModemImpl::deleteEfsFile(int32_t serial, int32_t file, uint8_t subSelector) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondDeleteEfsFile,
                   [&] { return mVsClient->deleteEfsFile(serial, file, subSelector); });
}

Return<void> ModemImpl::deleteEfsFileDir(int32_t serial, int32_t directory) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondDeleteEfsFileDir,
                   [&] { return mVsClient->deleteEfsFileDir(serial, directory); });
}

Return<void> ModemImpl::setAgpsTestMode(int32_t serial, uint32_t mode) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondSetAgpsTestMode,
                   [&] { return mVsClient->setAgpsTestMode(serial, mode); });
}

Return<void> ModemImpl::getAgpsTestMode(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondGetAgpsTestMode,
                   [&] { return mVsClient->getAgpsTestMode(serial); });
}

Return<void> ModemImpl::getModemPowerSaveMode(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondGetModemPowerSaveMode,
                   [&] { return mVsClient->getModemPowerSaveMode(serial); });
}

Return<void> ModemImpl::setModemPowerSaveMode(int32_t serial, uint8_t mode) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondSetModemPowerSaveMode,
                   [&] { return mVsClient->setModemPowerSaveMode(serial, mode); });
}

Return<void> ModemImpl::setModemPowerSaveStatus(int32_t serial, uint8_t status) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondSetModemPowerSaveStatus,
                   [&] { return mVsClient->setModemPowerSaveStatus(serial, status); });
}

Return<void> ModemImpl::setModemProperty(int32_t serial, const hidl_string& name,
                                         const hidl_string& value) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondSetModemProperty, [&] {
        return mVsClient->setModemProperty(serial, fromHidl(name), fromHidl(value));
    });
}

Return<void> ModemImpl::getModemProperty(int32_t serial, const hidl_string& name) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondGetModemProperty,
                   [&] { return mVsClient->getModemProperty(serial, fromHidl(name)); });
}

Return<void> ModemImpl::deleteModemProperty(int32_t serial, const hidl_string& name) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondDeleteModemProperty,
                   [&] { return mVsClient->deleteModemProperty(serial, fromHidl(name)); });
}

Return<void> ModemImpl::doCommonInterfaceDebug(int32_t serial, uint32_t value) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondDoCommonInterfaceDebug,
                   [&] { return mVsClient->doCommonInterfaceDebug(serial, value); });
}

Return<void> ModemImpl::readPrl(int32_t serial, uint8_t selector) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondReadPrl,
                   [&] { return mVsClient->readPrl(serial, selector); });
}

Return<void> ModemImpl::writePrl(int32_t serial, uint8_t selector, const hidl_vec<uint8_t>& data) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondWritePrl,
                   [&] { return mVsClient->writePrl(serial, selector, fromHidl(data)); });
}

Return<void> ModemImpl::getSimlockInfoStatus(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondGetSimlockInfoStatus,
                   [&] { return mVsClient->getSimlockInfoStatus(serial); });
}

Return<void> ModemImpl::getSimlockInfoCategory(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondGetSimlockInfoCategory,
                   [&] { return mVsClient->getSimlockInfoCategory(serial); });
}

Return<void> ModemImpl::getSimlockInfoNumberRetriesRemain(int32_t serial) {
    return request(__func__, serial, mVsClient.get(),
                   &Proxy::respondGetSimlockInfoNumberRetriesRemain,
                   [&] { return mVsClient->getSimlockInfoNumberRetriesRemain(serial); });
}

Return<void> ModemImpl::getSimlockFuseStatus(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondGetSimlockFuseStatus,
                   [&] { return mVsClient->getSimlockFuseStatus(serial); });
}

Return<void> ModemImpl::rebootModem(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondRebootModem,
                   [&] { return mVsClient->rebootModem(serial); });
}

Return<void> ModemImpl::getBandsInfo(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondGetBandsInfo,
                   [&] { return mVsClient->getBandsInfo(serial); });
}

Return<void> ModemImpl::removeRatMask(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondRemoveRatMask,
                   [&] { return mVsClient->removeRatMask(serial); });
}

Return<void> ModemImpl::abortRRCConnection(int32_t serial) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondAbortRRCConnection,
                   [&] { return mVsClient->abortRRCConnection(serial); });
}

Return<void> ModemImpl::setRadioInfoReportEnabled(int32_t serial, uint32_t enabled) {
    return request(__func__, serial, mVsClient.get(), &Proxy::respondSetRadioInfoReportEnabled,
                   [&] { return mVsClient->setRadioInfoReportEnabled(serial, enabled); });
}

Return<void> ModemImpl::setVoNRMode(int32_t serial, int32_t mode) {
    return request(__func__, serial, mNasClient.get(), &Proxy::respondSetVoNRMode,
                   [&] { return mNasClient->setVoNRMode(serial, mode); });
}

Return<void> ModemImpl::getVoNRMode(int32_t serial) {
    return request(__func__, serial, mNasClient.get(), &Proxy::respondGetVoNRMode,
                   [&] { return mNasClient->getVoNRMode(serial); });
}

Return<void> ModemImpl::isImsProfileNormal(int32_t serial) {
    return request(__func__, serial, mWdsClient.get(), &Proxy::respondIsImsProfileNormal,
                   [&] { return mWdsClient->isImsProfileNormal(serial); });
}

Return<void> ModemImpl::deprioritizeNr(int32_t serial, int32_t mode) {
    return request(__func__, serial, mNasClient.get(), &Proxy::respondDeprioritizeNr,
                   [&] { return mNasClient->deprioritizeNr(serial, mode); });
}

Return<void> ModemImpl::deleteImsProfile(int32_t serial) {
    return request(__func__, serial, mWdsClient.get(), &Proxy::respondDeleteImsProfile,
                   [&] { return mWdsClient->deleteImsProfile(serial); });
}

Return<void> ModemImpl::setSarState(int32_t serial, int32_t state) {
    LOG_I("ModemImpl::%s: serial = %d, state = %d", __func__, serial, state);
    return requestUnlogged(__func__, serial, mSarClient.get(), &Proxy::respondSetSarState,
                           [&] { return mSarClient->setSarState(serial, state); });
}

Return<void> ModemImpl::getOperatingMode(int32_t serial) {
    return request(__func__, serial, mDmsClient.get(), &Proxy::respondGetOperatingMode,
                   [&] { return mDmsClient->getOperatingMode(serial); });
}

Return<void> ModemImpl::setOperatingMode(int32_t serial, int32_t mode) {
    return request(__func__, serial, mDmsClient.get(), &Proxy::respondSetOperatingMode,
                   [&] { return mDmsClient->setOperatingMode(serial, mode); });
}

Return<void> ModemImpl::sendLogControlResp(int32_t serial) {
    return request(__func__, serial, mAtClient.get(), &Proxy::respondSendLogControlResp,
                   [&] { return mAtClient->sendLogControlResp(serial); });
}
