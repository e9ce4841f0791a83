#include "proxies/ModemIndicationProxy.h"

#include <new>
#include <shared_mutex>

#include "params/ModemLog.h"
#include "proxies/HidlConversions.h"
#include "proxies/SendStatus.h"

using android::sp;
using hidl_conversions::toHidl;
using vendor::lyr::modem::V1_0::IModemIndication;

namespace {

constexpr uint32_t INDICATION_TYPE = 0;

}  // namespace

// Never destroyed: modem threads may report while the process exits.
const std::string& ModemIndicationProxy::RRC_STATE = *new std::string("rrc_state");
const std::string& ModemIndicationProxy::POWER_SAVE_MODE = *new std::string("power_save_mode");
ModemIndicationProxy::Cache<rrc_state_type>& ModemIndicationProxy::sCache =
        *new Cache<rrc_state_type>;
ModemIndicationProxy::Cache<int>& ModemIndicationProxy::sPowerSaveModeCache = *new Cache<int>;
std::mutex ModemIndicationProxy::sCacheMutex;
std::recursive_mutex ModemIndicationProxy::sReplayMutex;

sp<IModemIndication> ModemIndicationProxy::getCallback() const {
    std::shared_lock lock(mLock);
    return IModemIndication::castFrom(mCallback, false);
}

int ModemIndicationProxy::indicateModemRRCState(int lteValid, int rrcState, int wcdmaValid,
                                                int wcdmaRrcState) {
    const rrc_state_type state{lteValid, rrcState, wcdmaValid, wcdmaRrcState};
    const int result = sendRRCState(__func__, state);
    return result == ERRNO_NOT_CONNECTED ? keep(sCache, RRC_STATE, state) : result;
}

int ModemIndicationProxy::indicateModemRadioInfoReport(NetworkStatusInfoType& info) {
    return send(__func__, [&](IModemIndication& callback) {
        return callback.modemRadioInfoReportInd(INDICATION_TYPE, toHidl(info));
    });
}

int ModemIndicationProxy::indicatePowerSaveMode(int mode) {
    const int result = sendPowerSaveMode(__func__, mode);
    return result == ERRNO_NOT_CONNECTED ? keep(sPowerSaveModeCache, POWER_SAVE_MODE, mode)
                                         : result;
}

int ModemIndicationProxy::indicateAtLogControlInfo(uint8_t logMode, uint8_t testResult,
                                                   const std::string& tcName) {
    LOG_I("%s: log mode = %hhu, test result = %hhu, tc name = %s", __func__, logMode, testResult,
          tcName.c_str());
    return send(__func__, [&](IModemIndication& callback) {
        return callback.atLogControlInfoInd(INDICATION_TYPE, logMode, testResult, toHidl(tcName));
    });
}

int ModemIndicationProxy::indicateCachedInfo() {
    LOG_I("%s: enter", __func__);
    std::lock_guard lock(sReplayMutex);
    const int result = replay(sCache, RRC_STATE, [this](const rrc_state_type& state) {
        return sendRRCState("indicateModemRRCState", state);
    });
    if (result != ERRNO_SUCCESS) {
        return result;
    }
    return replay(sPowerSaveModeCache, POWER_SAVE_MODE,
                  [this](int mode) { return sendPowerSaveMode("indicatePowerSaveMode", mode); });
}

ModemIndicationProxy::KeptEvents ModemIndicationProxy::keptEvents() {
    std::lock_guard lock(sCacheMutex);
    return {!sCache.empty(), !sPowerSaveModeCache.empty()};
}

int ModemIndicationProxy::sendRRCState(const char* func, const rrc_state_type& state) const {
    LOG_I("%s: lteValid = %d,  rrcState = %d,  wcdmaValid = %d,  wcdmaRrcState = %d", func,
          state.lteValid, state.rrcState, state.wcdmaValid, state.wcdmaRrcState);
    return send(func, [&](IModemIndication& callback) {
        return callback.modemRRCStateInd(INDICATION_TYPE, state.lteValid, state.rrcState,
                                         state.wcdmaValid, state.wcdmaRrcState);
    });
}

int ModemIndicationProxy::sendPowerSaveMode(const char* func, int mode) const {
    LOG_I("%s: mode = %d", func, mode);
    return send(func, [&](IModemIndication& callback) {
        return callback.powerSaveModeInd(INDICATION_TYPE, mode);
    });
}

int ModemIndicationProxy::send(
        const char* func,
        FunctionRef<android::hardware::Return<void>(IModemIndication&)> call) const {
    const sp<IModemIndication> callback = getCallback();
    if (callback == nullptr) {
        LOG_E("%s: indCb null, can't send indication", func);
        return ERRNO_NOT_CONNECTED;
    }
    return sendStatus(func, [&] { return call(*callback); });
}

template <class Value>
int ModemIndicationProxy::keep(Cache<Value>& cache, const std::string& key, const Value& value) {
    try {
        std::lock_guard lock(sCacheMutex);
        cache.emplace(key, value);  // the first one stays
    } catch (const std::bad_alloc&) {
        LOG_E("%s: no memory to keep %s", __func__, key.c_str());
        return ERRNO_NO_MEMORY;
    }
    // A callback installed between the look for one and the keeping has replayed without this
    // event, and nobody would replay again.
    if (getCallback() != nullptr) {
        indicateCachedInfo();
    }
    return ERRNO_NOT_CONNECTED;
}

template <class Value, class Send>
int ModemIndicationProxy::replay(Cache<Value>& cache, const std::string& key, Send send) {
    std::unique_lock lock(sCacheMutex);
    auto entry = cache.extract(key);
    lock.unlock();
    if (entry.empty()) {
        return ERRNO_SUCCESS;
    }
    const int result = send(entry.mapped());
    if (result == ERRNO_NOT_CONNECTED) {
        // It came before any event that was kept meanwhile, so it takes that one's place.
        lock.lock();
        cache.erase(key);
        cache.insert(std::move(entry));
    }
    return result;
}
