// The vendor service's events, handed to the upper layer field by field.

#include <algorithm>
#include <cstring>

#include "clients/EventRecord.h"
#include "clients/VsQmiClient.h"

namespace {

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
