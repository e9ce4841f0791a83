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

}  // namespace

Return<void> ModemImpl::request(const char* func, int32_t serial, QmiClient* client,
                                FunctionRef<int()> send, FunctionRef<void(Errno)> refuse) {
    LOG_I("ModemImpl::%s: serial = %d", func, serial);
    return handOver(func, client, send, refuse);
}

Return<void> ModemImpl::handOver(const char* func, QmiClient* client, FunctionRef<int()> send,
                                 FunctionRef<void(Errno)> refuse) {
    Errno err = ERRNO_NOT_CONNECTED;
    if (client != nullptr) {
        client->countTaken();
        try {
            err = send();
        } catch (const std::bad_alloc&) {
            LOG_E("ModemImpl::%s: no memory for the arguments", func);
            err = ERRNO_NO_MEMORY;
        }
    }
    if (err != ERRNO_SUCCESS) {
        if (client != nullptr) {
            client->countRefused();
        }
        refuse(err);
    }
    return Void();
}

Return<void> ModemImpl::switchNRNetworkMode(int32_t serial, int32_t mode) {
    return request(
            __func__, serial, mNasClient.get(),
            [&] { return mNasClient->switchNRNetworkMode(serial, mode); },
            [&](Errno err) { mResponseProxy->respondSwitchNRNetworkMode(serial, err); });
}

Return<void> ModemImpl::getNRNetworkMode(int32_t serial) {
    return request(
            __func__, serial, mNasClient.get(),
            [&] { return mNasClient->getNRNetworkMode(serial); },
            [&](Errno err) { mResponseProxy->respondGetNRNetworkMode(serial, err, {}); });
}

Return<void> ModemImpl::getBuildTime(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(), [&] { return mVsClient->getBuildTime(serial); },
            [&](Errno err) { mResponseProxy->respondGetBuildTime(serial, err, {}); });
}

Return<void> ModemImpl::getBuildId(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(), [&] { return mVsClient->getBuildId(serial); },
            [&](Errno err) { mResponseProxy->respondGetBuildId(serial, err, {}); });
}

Return<void> ModemImpl::getActiveMbnInfo(int32_t serial, int32_t type) {
    return request(
            __func__, serial, mPdcClient.get(),
            [&] { return mPdcClient->getActiveMbnInfo(serial, type); },
            [&](Errno err) { mResponseProxy->respondGetActiveMbnInfo(serial, err, {}); });
}

Return<void> ModemImpl::getMetaMbnInfo(int32_t serial, const hidl_vec<uint8_t>& configId,
                                       int32_t length) {
    return request(
            __func__, serial, mPdcClient.get(),
            [&] { return mPdcClient->getMetaMbnInfo(serial, fromHidl(configId), length); },
            [&](Errno err) { mResponseProxy->respondGetMetaMbnInfo(serial, err, {}); });
}

Return<void> ModemImpl::getMbnList(int32_t serial) {
    return request(
            __func__, serial, mPdcClient.get(), [&] { return mPdcClient->getMbnList(serial); },
            [&](Errno err) { mResponseProxy->respondGetMbnList(serial, err, {}); });
}

Return<void> ModemImpl::selectMbn(int32_t serial, int32_t type, const hidl_vec<uint8_t>& configId) {
    return request(
            __func__, serial, mPdcClient.get(),
            [&] { return mPdcClient->selectMbn(serial, type, fromHidl(configId)); },
            [&](Errno err) { mResponseProxy->respondSelectMbn(serial, err); });
}

Return<void> ModemImpl::selectMbnExt(int32_t serial, int32_t type,
                                     const hidl_vec<uint8_t>& configId, int32_t length) {
    return request(
            __func__, serial, mPdcClient.get(),
            [&] { return mPdcClient->selectMbnExt(serial, type, fromHidl(configId), length); },
            [&](Errno err) { mResponseProxy->respondSelectMbnExt(serial, err); });
}

Return<void> ModemImpl::deleteAllMbns(int32_t serial) {
    return request(
            __func__, serial, mPdcClient.get(), [&] { return mPdcClient->deleteAllMbns(serial); },
            [&](Errno err) { mResponseProxy->respondDeleteAllMbns(serial, err); });
}

Return<void> ModemImpl::loadMbnConfig(int32_t serial, const hidl_vec<uint8_t>& path) {
    return request(
            __func__, serial, mPdcClient.get(),
            [&] { return mPdcClient->loadMbnConfig(serial, fromHidl(path)); },
            [&](Errno err) { mResponseProxy->respondLoadMbnConfig(serial, err); });
}

Return<void> ModemImpl::activateMbn(int32_t serial, int32_t type) {
    return request(
            __func__, serial, mPdcClient.get(),
            [&] { return mPdcClient->activateMbn(serial, type); },
            [&](Errno err) { mResponseProxy->respondActivateMbn(serial, err); });
}

Return<void> ModemImpl::deactivateMbn(int32_t serial, int32_t type) {
    return request(
            __func__, serial, mPdcClient.get(),
            [&] { return mPdcClient->deactivateMbn(serial, type); },
            [&](Errno err) { mResponseProxy->respondDeactivateMbn(serial, err); });
}

Return<void> ModemImpl::activateRegularMbn(int32_t serial, int32_t type) {
    return request(
            __func__, serial, mPdcClient.get(),
            [&] { return mPdcClient->activateRegularMbn(serial, type); },
            [&](Errno err) { mResponseProxy->respondActivateRegularMbn(serial, err); });
}

Return<void> ModemImpl::activateMbnByName(int32_t serial, const hidl_string& name) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->activateMbnByName(serial, fromHidl(name)); },
            [&](Errno err) { mResponseProxy->respondActivateMbnByName(serial, err); });
}

Return<void> ModemImpl::restoreMbn(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(), [&] { return mVsClient->restoreMbn(serial); },
            [&](Errno err) { mResponseProxy->respondRestoreMbn(serial, err); });
}

Return<void> ModemImpl::readNVItem(int32_t serial, int32_t item, uint8_t selector1,
                                   uint8_t selector2) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] {
                return mVsClient->readNVItem(serial, static_cast<int8_t>(selector1), item,
                                             static_cast<int8_t>(selector2));
            },
            [&](Errno err) { mResponseProxy->respondReadNVItem(serial, err, {}); });
}

Return<void> ModemImpl::writeNVItem(int32_t serial, int32_t item, uint8_t selector1,
                                    uint8_t selector2, const hidl_vec<uint8_t>& data) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] {
                return mVsClient->writeNVItem(serial, static_cast<int8_t>(selector1), item,
                                              static_cast<int8_t>(selector2), fromHidl(data));
            },
            [&](Errno err) { mResponseProxy->respondWriteNVItem(serial, err); });
}

Return<void> ModemImpl::verifyNV(int32_t serial, int32_t item, const hidl_vec<uint8_t>& data) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->verifyNV(serial, item, fromHidl(data)); },
            [&](Errno err) { mResponseProxy->respondVerifyNV(serial, err, {}); });
}

Return<void> ModemImpl::readEfsFile(int32_t serial, int32_t file, uint8_t subSelector) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->readEfsFile(serial, file, subSelector); },
            [&](Errno err) { mResponseProxy->respondReadEfsFile(serial, err, {}); });
}

Return<void> ModemImpl::writeEfsFile(int32_t serial, int32_t file, uint8_t subSelector,
                                     const hidl_vec<uint8_t>& data) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->writeEfsFile(serial, file, subSelector, fromHidl(data)); },
            [&](Errno err) { mResponseProxy->respondWriteEfsFile(serial, err); });
}

Return<void> ModemImpl::deleteEfsFile(int32_t serial, int32_t file, uint8_t subSelector) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->deleteEfsFile(serial, file, subSelector); },
            [&](Errno err) { mResponseProxy->respondDeleteEfsFile(serial, err); });
}

Return<void> ModemImpl::deleteEfsFileDir(int32_t serial, int32_t directory) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->deleteEfsFileDir(serial, directory); },
            [&](Errno err) { mResponseProxy->respondDeleteEfsFileDir(serial, err); });
}

Return<void> ModemImpl::setAgpsTestMode(int32_t serial, uint32_t mode) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->setAgpsTestMode(serial, mode); },
            [&](Errno err) { mResponseProxy->respondSetAgpsTestMode(serial, err); });
}

Return<void> ModemImpl::getAgpsTestMode(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(), [&] { return mVsClient->getAgpsTestMode(serial); },
            [&](Errno err) { mResponseProxy->respondGetAgpsTestMode(serial, err, {}); });
}

Return<void> ModemImpl::getModemPowerSaveMode(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->getModemPowerSaveMode(serial); },
            [&](Errno err) { mResponseProxy->respondGetModemPowerSaveMode(serial, err, {}); });
}

Return<void> ModemImpl::setModemPowerSaveMode(int32_t serial, uint8_t mode) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->setModemPowerSaveMode(serial, mode); },
            [&](Errno err) { mResponseProxy->respondSetModemPowerSaveMode(serial, err); });
}

Return<void> ModemImpl::setModemPowerSaveStatus(int32_t serial, uint8_t status) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->setModemPowerSaveStatus(serial, status); },
            [&](Errno err) { mResponseProxy->respondSetModemPowerSaveStatus(serial, err); });
}

Return<void> ModemImpl::setModemProperty(int32_t serial, const hidl_string& name,
                                         const hidl_string& value) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->setModemProperty(serial, fromHidl(name), fromHidl(value)); },
            [&](Errno err) { mResponseProxy->respondSetModemProperty(serial, err); });
}

Return<void> ModemImpl::getModemProperty(int32_t serial, const hidl_string& name) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->getModemProperty(serial, fromHidl(name)); },
            [&](Errno err) { mResponseProxy->respondGetModemProperty(serial, err, {}); });
}

Return<void> ModemImpl::deleteModemProperty(int32_t serial, const hidl_string& name) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->deleteModemProperty(serial, fromHidl(name)); },
            [&](Errno err) { mResponseProxy->respondDeleteModemProperty(serial, err); });
}

Return<void> ModemImpl::doCommonInterfaceDebug(int32_t serial, uint32_t value) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->doCommonInterfaceDebug(serial, value); },
            [&](Errno err) { mResponseProxy->respondDoCommonInterfaceDebug(serial, err); });
}

Return<void> ModemImpl::readPrl(int32_t serial, uint8_t selector) {
    return request(
            __func__, serial, mVsClient.get(), [&] { return mVsClient->readPrl(serial, selector); },
            [&](Errno err) { mResponseProxy->respondReadPrl(serial, err, {}); });
}

Return<void> ModemImpl::writePrl(int32_t serial, uint8_t selector, const hidl_vec<uint8_t>& data) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->writePrl(serial, selector, fromHidl(data)); },
            [&](Errno err) { mResponseProxy->respondWritePrl(serial, err); });
}

Return<void> ModemImpl::getSimlockInfoStatus(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->getSimlockInfoStatus(serial); },
            [&](Errno err) { mResponseProxy->respondGetSimlockInfoStatus(serial, err, {}); });
}

Return<void> ModemImpl::getSimlockInfoCategory(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->getSimlockInfoCategory(serial); },
            [&](Errno err) { mResponseProxy->respondGetSimlockInfoCategory(serial, err, {}); });
}

Return<void> ModemImpl::getSimlockInfoNumberRetriesRemain(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->getSimlockInfoNumberRetriesRemain(serial); },
            [&](Errno err) {
                mResponseProxy->respondGetSimlockInfoNumberRetriesRemain(serial, err, {});
            });
}

Return<void> ModemImpl::getSimlockFuseStatus(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->getSimlockFuseStatus(serial); },
            [&](Errno err) { mResponseProxy->respondGetSimlockFuseStatus(serial, err, {}); });
}

Return<void> ModemImpl::rebootModem(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(), [&] { return mVsClient->rebootModem(serial); },
            [&](Errno err) { mResponseProxy->respondRebootModem(serial, err); });
}

Return<void> ModemImpl::getBandsInfo(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(), [&] { return mVsClient->getBandsInfo(serial); },
            [&](Errno err) { mResponseProxy->respondGetBandsInfo(serial, err, {}); });
}

Return<void> ModemImpl::removeRatMask(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(), [&] { return mVsClient->removeRatMask(serial); },
            [&](Errno err) { mResponseProxy->respondRemoveRatMask(serial, err); });
}

Return<void> ModemImpl::abortRRCConnection(int32_t serial) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->abortRRCConnection(serial); },
            [&](Errno err) { mResponseProxy->respondAbortRRCConnection(serial, err); });
}

Return<void> ModemImpl::setRadioInfoReportEnabled(int32_t serial, uint32_t enabled) {
    return request(
            __func__, serial, mVsClient.get(),
            [&] { return mVsClient->setRadioInfoReportEnabled(serial, enabled); },
            [&](Errno err) { mResponseProxy->respondSetRadioInfoReportEnabled(serial, err); });
}

Return<void> ModemImpl::setVoNRMode(int32_t serial, int32_t mode) {
    return request(
            __func__, serial, mNasClient.get(),
            [&] { return mNasClient->setVoNRMode(serial, mode); },
            [&](Errno err) { mResponseProxy->respondSetVoNRMode(serial, err); });
}

Return<void> ModemImpl::getVoNRMode(int32_t serial) {
    return request(
            __func__, serial, mNasClient.get(), [&] { return mNasClient->getVoNRMode(serial); },
            [&](Errno err) { mResponseProxy->respondGetVoNRMode(serial, err, {}); });
}

Return<void> ModemImpl::isImsProfileNormal(int32_t serial) {
    return request(
            __func__, serial, mWdsClient.get(),
            [&] { return mWdsClient->isImsProfileNormal(serial); },
            [&](Errno err) { mResponseProxy->respondIsImsProfileNormal(serial, err, {}); });
}

Return<void> ModemImpl::deprioritizeNr(int32_t serial, int32_t mode) {
    return request(
            __func__, serial, mNasClient.get(),
            [&] { return mNasClient->deprioritizeNr(serial, mode); },
            [&](Errno err) { mResponseProxy->respondDeprioritizeNr(serial, err); });
}

Return<void> ModemImpl::deleteImsProfile(int32_t serial) {
    return request(
            __func__, serial, mWdsClient.get(),
            [&] { return mWdsClient->deleteImsProfile(serial); },
            [&](Errno err) { mResponseProxy->respondDeleteImsProfile(serial, err); });
}

Return<void> ModemImpl::setSarState(int32_t serial, int32_t state) {
    LOG_I("ModemImpl::%s: serial = %d, state = %d", __func__, serial, state);
    return handOver(
            __func__, mSarClient.get(), [&] { return mSarClient->setSarState(serial, state); },
            [&](Errno err) { mResponseProxy->respondSetSarState(serial, err); });
}

Return<void> ModemImpl::getOperatingMode(int32_t serial) {
    return request(
            __func__, serial, mDmsClient.get(),
            [&] { return mDmsClient->getOperatingMode(serial); },
            [&](Errno err) { mResponseProxy->respondGetOperatingMode(serial, err, {}); });
}

Return<void> ModemImpl::setOperatingMode(int32_t serial, int32_t mode) {
    return request(
            __func__, serial, mDmsClient.get(),
            [&] { return mDmsClient->setOperatingMode(serial, mode); },
            [&](Errno err) { mResponseProxy->respondSetOperatingMode(serial, err); });
}

Return<void> ModemImpl::sendLogControlResp(int32_t serial) {
    return request(
            __func__, serial, mAtClient.get(),
            [&] { return mAtClient->sendLogControlResp(serial); },
            [&](Errno err) { mResponseProxy->respondSendLogControlResp(serial, err); });
}
