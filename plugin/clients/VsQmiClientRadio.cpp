// Radio: bands, RAT mask, RRC connection, the switch of the radio reports; and the events.

#include <algorithm>
#include <cstring>

#include "clients/EventRecord.h"
#include "clients/VsQmiClient.h"
#include "params/MessageIds.h"

namespace {

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

NetworkStatusInfoType networkStatusOf(const modem_nr_radio_info_event& event) {
    NetworkStatusInfoType info{};
    info.field1 = event.field1;
    info.field2 = event.field2;
    memcpy(&info.field3, event.field3, sizeof(info.field3));
    info.field4 = event.field4;
    std::copy(std::begin(event.field5), std::end(event.field5), info.field5);
    info.field6 = event.field6;
    info.field7 = event.field7;
    std::copy(std::begin(event.field8), std::end(event.field8), info.field8);
    info.field9 = event.field9;
    memcpy(info.field10, event.field10, sizeof(info.field10));
    return info;
}

}  // namespace

int VsQmiClient::getBandsInfo(int serial) {
    return postVoid(__func__, VsMessage::GET_BANDS_INFO, serial);
}

int VsQmiClient::handleGetBandsInfoMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg, &Proxy::respondGetBandsInfo, [](const auto&, void* cookie) {
                return modem_get_bands_info(cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processGetBandsInfoAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondGetBandsInfo,
                  [](const auto& payload, BandsInfoType& bands) {
                      bands = bandsOf(payload.bands);
                      return ERRNO_SUCCESS;
                  });
}

int VsQmiClient::removeRatMask(int serial) {
    return postVoid(__func__, VsMessage::REMOVE_RAT_MASK, serial);
}

int VsQmiClient::handleRemoveRatMaskMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg, &Proxy::respondRemoveRatMask, [](const auto&, void* cookie) {
                return modem_api_remove_rat_mask(cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processRemoveRatMaskAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondRemoveRatMask);
}

int VsQmiClient::abortRRCConnection(int serial) {
    return postVoid(__func__, VsMessage::ABORT_RRC_CONNECTION, serial);
}

int VsQmiClient::handleAbortRRCConnectionMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg, &Proxy::respondAbortRRCConnection, [](const auto&, void* cookie) {
                return modem_abort_rrc_connection(cookie, modemApiAsyncCallback);
            });
}

int VsQmiClient::processAbortRRCConnectionResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondAbortRRCConnection);
}

int VsQmiClient::setRadioInfoReportEnabled(int serial, unsigned int enabled) {
    LOG_I("%s: serial = %d, mode = %d", __func__, serial, enabled);
    return sendRequest(serial, VsMessage::SET_RADIO_INFO_REPORT_ENABLED, enabled);
}

int VsQmiClient::handleSetRadioInfoReportEnabledMessage(const MessagePtr& msg) {
    return serveAsync<SerialUintParam>(__func__, msg, &Proxy::respondSetRadioInfoReportEnabled,
                                       [](const auto& request, void* cookie) {
                                           return modem_api_set_radio_info_report_enabled(
                                                   request.value, cookie, modemApiAsyncCallback);
                                       });
}

int VsQmiClient::processSetRadioInfoReportEnabledAsyncResponse(const Completion& completion) {
    return finish(__func__, completion, &Proxy::respondSetRadioInfoReportEnabled);
}

// ---- Events, handed to the upper layer field by field ------------------------------------------

int VsQmiClient::reportRRCStateInd(const void* data, size_t length) const {
    modem_rrc_state_event event;
    if (!takeEvent(__func__, data, length, event)) {
        return ERRNO_INVALID_PARAM;
    }
    LOG_I("%s: now report RRC state to upperlayer", __func__);
    return mIndicationProxy->indicateModemRRCState(event.lte_valid, event.rrc_state,
                                                   event.wcdma_valid, event.wcdma_rrc_state);
}

int VsQmiClient::reportRadioInfoInd(const void* data, size_t length) const {
    modem_nr_radio_info_event event;
    if (!takeEvent(__func__, data, length, event)) {
        return ERRNO_INVALID_PARAM;
    }
    LOG_I("%s: now report radio info to upperlayer", __func__);
    NetworkStatusInfoType info = networkStatusOf(event);
    return mIndicationProxy->indicateModemRadioInfoReport(info);
}

int VsQmiClient::reportPowerSaveModeInd(const void* data, size_t length) const {
    modem_power_save_mode_event event;
    if (!takeEvent(__func__, data, length, event)) {
        return ERRNO_INVALID_PARAM;
    }
    LOG_I("%s: now report power save mode to upperlayer", __func__);
    return mIndicationProxy->indicatePowerSaveMode(event.mode);
}
