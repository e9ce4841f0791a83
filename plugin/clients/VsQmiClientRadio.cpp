// Radio: bands, RAT mask, RRC connection, and the switch of the radio reports.

#include "clients/VsQmiClientSteps.h"
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

}  // namespace

int VsQmiClient::getBandsInfo(int serial) {
    return postVoid(__func__, VsMessage::GET_BANDS_INFO, serial);
}

int VsQmiClient::handleGetBandsInfoMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg,
            [](const SerialVoidParam&, void* cookie) {
                return modem_get_bands_info(cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondGetBandsInfo);
}

int VsQmiClient::processGetBandsInfoAsyncResponse(const void* data, size_t length,
                                                  const SerialParam& request) {
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
    return serveAsync<SerialVoidParam>(
            __func__, msg,
            [](const SerialVoidParam&, void* cookie) {
                return modem_api_remove_rat_mask(cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondRemoveRatMask);
}

int VsQmiClient::processRemoveRatMaskAsyncResponse(const void* data, size_t length,
                                                   const SerialParam& request) {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondRemoveRatMask);
}

int VsQmiClient::abortRRCConnection(int serial) {
    return postVoid(__func__, VsMessage::ABORT_RRC_CONNECTION, serial);
}

int VsQmiClient::handleAbortRRCConnectionMessage(const MessagePtr& msg) {
    return serveAsync<SerialVoidParam>(
            __func__, msg,
            [](const SerialVoidParam&, void* cookie) {
                return modem_abort_rrc_connection(cookie, modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondAbortRRCConnection);
}

int VsQmiClient::processAbortRRCConnectionResponse(const void* data, size_t length,
                                                   const SerialParam& request) {
    return finish(__func__, data, length, request, &ModemResponseProxy::respondAbortRRCConnection);
}

int VsQmiClient::setRadioInfoReportEnabled(int serial, unsigned int enabled) {
    LOG_I("%s: serial = %d, mode = %d", __func__, serial, enabled);
    return sendRequest(serial, VsMessage::SET_RADIO_INFO_REPORT_ENABLED, enabled);
}

int VsQmiClient::handleSetRadioInfoReportEnabledMessage(const MessagePtr& msg) {
    return serveAsync<SerialUintParam>(
            __func__, msg,
            [](const SerialUintParam& request, void* cookie) {
                return modem_api_set_radio_info_report_enabled(request.value, cookie,
                                                               modemApiAsyncCallback);
            },
            &ModemResponseProxy::respondSetRadioInfoReportEnabled);
}

int VsQmiClient::processSetRadioInfoReportEnabledAsyncResponse(const void* data, size_t length,
                                                               const SerialParam& request) {
    return finish(__func__, data, length, request,
                  &ModemResponseProxy::respondSetRadioInfoReportEnabled);
}
