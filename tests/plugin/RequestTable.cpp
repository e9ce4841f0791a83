#include "tests/plugin/RequestTable.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <utility>

#include "tests/support/ScriptedModem.h"

namespace {

// Texts too long for a row: an identifier of 124 bytes that begins with 01ff, and the property
// record of "pn" = "val", both in hex.
std::string padded(const std::string& hex, size_t bytes) {
    return hex + std::string(2 * bytes - hex.size(), '0');
}

const std::string& keep(std::string text) {
    static auto& texts = *new std::vector<std::string*>;
    texts.push_back(new std::string(std::move(text)));
    return *texts.back();
}

}  // namespace

const std::vector<RequestRow>& requestTable() {
    static const std::string& id = keep(padded("01ff", 124));
    static const auto call = [](const std::string& text) { return keep(text).c_str(); };
    // clang-format off
    static const auto& rows = *new std::vector<RequestRow>{
    {"switchNRNetworkMode", {"5"}, "Nas", 4, "SerialIntParam", "serial = 7, mode = 5", "id", Style::SYNC, "handleSwitchNRNetworkMode", "modem_switch_nr_network_mode(5)", {"successfully set switch nr network mode"}, "failed to switch nr network mode", "", ""},
    {"getNRNetworkMode", {}, "Nas", 5, "SerialVoidParam", "serial = 7", "id", Style::SYNC, "handleGetNRNetworkMode", "modem_get_nr_network_mode()", {"successfully got NR Network mode"}, "failed to get nr5g band pref", R"(,"mode":2)", R"(,"mode":0)"},
    {"getBuildTime", {}, "Vs", 1, "SerialVoidParam", "serial = 7", "id", Style::ASYNC, "handleGetBuildTimeMessage", "modem_get_build_time()", {"successfully sent async request"}, "failed to send async request", R"(,"buildTime":"built")", R"(,"buildTime":"")"},
    {"getBuildId", {}, "Vs", 2, "SerialVoidParam", "serial = 7", "id", Style::ASYNC, "handleGetBuildIdMessage", "modem_get_build_id()", {"successfully sent async request"}, "failed to send async request", R"(,"buildId":"built")", R"(,"buildId":"")"},
    {"getActiveMbnInfo", {"1"}, "Pdc", 1, "SerialIntParam", "", "name", Style::TOKEN, "handleGetActiveMbnInfoMessage", "modem_pdc_get_activate_config_info(1, 7)", {"successfully sent request to modem"}, "", R"(,"mbnInfo":{"result":0,"configId":[65,66]})", ""},
    {"getMetaMbnInfo", {"hex:01ff", "2"}, "Pdc", 2, "GetMetaMbnInfoParam", "", "name", Style::TOKEN, "handleGetMetaMbnInfoMessage", call("modem_pdc_get_config_info(" + id + ", 2, 7)"), {"data length = 2", "successfully sent request"}, "failed to send request", R"(,"mbnInfo":{"result":0,"configId":[65,66]})", R"(,"mbnInfo":{"result":0,"configId":[]})"},
    {"getMbnList", {}, "Pdc", 3, "SerialVoidParam", "", "name", Style::OWN, "handleGetMbnListMessage", "", {}, "", "", R"(,"mbns":[])"},
    {"selectMbn", {"1", "hex:01ff"}, "Pdc", 4, "SelectedMbnParam", "", "name", Style::SYNC, "handleSelectMbnMessage", call("modem_pdc_set_selected_config_info(1, " + id + ")"), {"successfully selected mbn"}, "", "", ""},
    {"selectMbnExt", {"1", "hex:01ff", "2"}, "Pdc", 5, "SelectedMbnExtParam", "", "name", Style::SYNC, "handleSelectMbnExtMessage", call("modem_pdc_set_selected_config_info_ext(1, " + id + ", 2)"), {"config length = 2", "successfully selected mbn"}, "", "", ""},
    {"deleteAllMbns", {}, "Pdc", 6, "SerialVoidParam", "", "name", Style::SYNC, "handleDeleteAllMbnsMessage", "modem_pdc_delete_all_mbns()", {"successfully delete all mbns"}, "", "", ""},
    {"loadMbnConfig", {"/no/such/file"}, "Pdc", 7, "LoadMbnConfigParam", "", "name", Style::OWN, "handleLoadMbnConfigMessage", "", {}, "", "", ""},
    {"activateMbn", {"2"}, "Pdc", 8, "SerialIntParam", "", "name", Style::SYNC, "handleActivateMbnMessage", "modem_pdc_activate_config(2)", {"successfully activate mbn"}, "", "", ""},
    {"deactivateMbn", {"2"}, "Pdc", 9, "SerialIntParam", "", "name", Style::SYNC, "handleDeactivateMbnMessage", "modem_pdc_deactivate_config(2)", {"successfully deactivated mbn"}, "", "", ""},
    {"activateRegularMbn", {"2"}, "Pdc", 10, "SerialIntParam", "", "name", Style::TOKEN, "handleActivateRegularMbnMessage", "modem_pdc_activate_regular_config(2, 7)", {"successfully activated regular mbn"}, "", "", ""},
    {"activateMbnByName", {"row"}, "Vs", 4, "SerialStringParam", "", "id", Style::ASYNC, "handleActivateMbnByNameMessage", "modem_api_active_mbn(row)", {"successfully sent async request"}, "failed to send async request", "", ""},
    {"restoreMbn", {}, "Vs", 5, "SerialVoidParam", "serial = 7", "id", Style::ASYNC, "handleRestoreMbnMessage", "modem_api_restore_mbn()", {"successfully sent async request"}, "failed to send async request", "", ""},
    {"readNVItem", {"550", "255", "3"}, "Vs", 16, "NVItemParam", "", "short", Style::SYNC, "handleReadNVItemMessage", "modem_read_nv_for_subid(-1, 550, 3, 512)", {"successfully sent sync request"}, "failed to send sync request", R"(,"data":[10,11])", R"(,"data":[])"},
    {"writeNVItem", {"550", "255", "3", "hex:0a0b"}, "Vs", 17, "NVItemParam", "", "short", Style::SYNC, "handleWriteNVItemMessage", "modem_write_nv_for_subid(-1, 550, 0a0b)", {"successfully sent sync request"}, "failed to send sync request", "", ""},
    {"verifyNV", {"550", "hex:0a0b"}, "Vs", 23, "NVItemParam", "", "short", Style::SYNC, "handleVerifyNVMessage", "modem_verify_nv(550, 0a0b)", {"successfully sent sync request"}, "failed to send sync request", R"(,"verified":1)", R"(,"verified":0)"},
    {"readEfsFile", {"-2", "200"}, "Vs", 18, "EfsAccessParam", "", "short", Style::SYNC, "handleReadEfsFileMessage", "modem_read_efs_for_subid(200, -2, 10240)", {"successfully sent sync request"}, "failed to send sync request", R"(,"data":[10,11])", R"(,"data":[])"},
    {"writeEfsFile", {"-2", "200", "hex:"}, "Vs", 19, "EfsAccessParam", "", "short", Style::SYNC, "handleWriteEfsFileMessage", "modem_write_efs_for_subid(200, -2, )", {"successfully sent sync request"}, "failed to send sync request", "", ""},
    {"deleteEfsFile", {"4", "5"}, "Vs", 20, "EfsAccessParam", "", "short", Style::SYNC, "handleDeleteEfsFileMessage", "modem_del_efs_for_subid(5, 4)", {"successfully sent sync request"}, "failed to send sync request", "", ""},
    {"deleteEfsFileDir", {"7"}, "Vs", 52, "EfsAccessParam", "", "short", Style::SYNC, "handleDeleteEfsFileDirMessage", "modem_del_efs_file_dir(7)", {"successfully sent sync request"}, "failed to send sync request", "", ""},
    {"setAgpsTestMode", {"4294967295"}, "Vs", 7, "SerialUintParam", "serial = 7, mode = 4294967295", "id", Style::ASYNC, "handleSetAgpsTestModeMessage", "modem_api_set_agps_test_mode(4294967295)", {"successfully sent async request"}, "failed to send async request", "", ""},
    {"getAgpsTestMode", {}, "Vs", 8, "SerialVoidParam", "serial = 7", "id", Style::ASYNC, "handleGetAgpsTestModeMessage", "modem_api_get_agps_test_mode()", {"successfully sent async request"}, "failed to send async request", R"(,"mode":9)", R"(,"mode":0)"},
    {"getModemPowerSaveMode", {}, "Vs", 9, "SerialVoidParam", "serial = 7", "id", Style::ASYNC, "handleGetModemPowerSaveModeMessage", "modem_api_get_power_save_mode()", {"successfully sent async request"}, "failed to send async request", R"(,"mode":9)", R"(,"mode":0)"},
    {"setModemPowerSaveMode", {"255"}, "Vs", 10, "SerialByteParam", "serial = 7, mode = 255", "id", Style::ASYNC, "handleSetModemPowerSaveModeMessage", "modem_api_set_power_save_mode(255)", {"successfully sent async request"}, "failed to send async request", "", ""},
    {"setModemPowerSaveStatus", {"1"}, "Vs", 15, "SerialByteParam", "serial = 7, status = 1", "id", Style::ASYNC, "handleSetModemPowerSaveStatusMessage", "modem_api_set_power_save_status(1)", {"successfully sent async request"}, "failed to send async request", "", ""},
    {"setModemProperty", {"pn", "val"}, "Vs", 11, "ModemPropertyParam", "serial = 7", "short", Style::ASYNC, "handleSetModemPropertyMessage", call("modem_api_set_modem_property(" + padded("00706e", 56) + "02000000" + padded("76616c", 512) + "03000000)"), {"successfully sent async request"}, "failed to send async request", "", ""},
    {"getModemProperty", {"pn"}, "Vs", 12, "SerialStringParam", "serial = 7", "id", Style::ASYNC, "handleGetModemPropertyMessage", "modem_api_get_modem_property(pn)", {"successfully sent async request"}, "failed to send async request", R"(,"value":"kept")", R"(,"value":"")"},
    {"deleteModemProperty", {"pn"}, "Vs", 13, "SerialStringParam", "serial = 7", "id", Style::SYNC, "handleDeleteModemPropertyMessage", "modem_api_delete_modem_property_sync(pn)", {"successfully sent sync request"}, "failed to send sync request", "", ""},
    {"doCommonInterfaceDebug", {"6"}, "Vs", 14, "SerialUintParam", "serial = 7", "id", Style::SYNC, "handleDoCommonInterfaceDebugMessage", "modem_common_interface_debug(6)", {"successfully sent sync request"}, "failed to send sync request", "", ""},
    {"readPrl", {"1"}, "Vs", 21, "SerialByteParam", "", "id", Style::SYNC, "handleReadPrlMessage", "modem_read_prl(1, 10240)", {"successfully sent sync request"}, "failed to send sync request", R"(,"data":[10,11])", R"(,"data":[])"},
    {"writePrl", {"1", "hex:0c"}, "Vs", 22, "PrlParam", "", "short", Style::SYNC, "handleWritePrlMessage", "modem_write_prl(1, 0c)", {"successfully sent sync request"}, "failed to send sync request", "", ""},
    {"getSimlockInfoStatus", {}, "Vs", 26, "SerialVoidParam", "serial = 7", "id", Style::SYNC, "handleGetSimlockInfoStateMessage", "modem_api_get_simlock_info()", {"successfully sent async request"}, "failed to send async request", R"(,"status":1)", R"(,"status":0)"},
    {"getSimlockInfoCategory", {}, "Vs", 27, "SerialVoidParam", "serial = 7", "id", Style::SYNC, "handleGetSimlockInfoCategoryMessage", "modem_api_get_simlock_info()", {"successfully sent async request"}, "failed to send async request", R"(,"category":2)", R"(,"category":0)"},
    {"getSimlockInfoNumberRetriesRemain", {}, "Vs", 28, "SerialVoidParam", "serial = 7", "id", Style::SYNC, "handleGetSimlockInfoNumberRetriesRemainMessage", "modem_api_get_simlock_info()", {"successfully sent async request"}, "failed to send async request", R"(,"retries":3)", R"(,"retries":0)"},
    {"getSimlockFuseStatus", {}, "Vs", 34, "SerialVoidParam", "serial = 7", "id", Style::SYNC, "handleGetSimlockFuseStateMessage", "modem_api_get_simlock_fuse_status()", {"successfully sent async request"}, "failed to send async request", R"(,"status":4)", R"(,"status":0)"},
    {"rebootModem", {}, "Vs", 37, "SerialVoidParam", "serial = 7", "id", Style::SYNC, "handleRebootModemMessage", "modem_subsystem_reboot()", {"successfully sent async request"}, "failed to send async request", "", ""},
    {"getBandsInfo", {}, "Vs", 44, "SerialVoidParam", "serial = 7", "id", Style::ASYNC, "handleGetBandsInfoMessage", "modem_get_bands_info()", {"successfully sent async request"}, "failed to send async request", R"(,"bands":{"list1":[1,3,7],"list2":[],"list3":[],"list4":[],"list5":[78]})", R"(,"bands":{"list1":[],"list2":[],"list3":[],"list4":[],"list5":[]})"},
    {"removeRatMask", {}, "Vs", 48, "SerialVoidParam", "serial = 7", "id", Style::ASYNC, "handleRemoveRatMaskMessage", "modem_api_remove_rat_mask()", {"successfully sent async request"}, "failed to send async request", "", ""},
    {"abortRRCConnection", {}, "Vs", 49, "SerialVoidParam", "serial = 7", "id", Style::ASYNC, "handleAbortRRCConnectionMessage", "modem_abort_rrc_connection()", {"successfully sent async request"}, "failed to send async request", "", ""},
    {"setRadioInfoReportEnabled", {"1"}, "Vs", 51, "SerialUintParam", "serial = 7, mode = 1", "id", Style::ASYNC, "handleSetRadioInfoReportEnabledMessage", "modem_api_set_radio_info_report_enabled(1)", {"successfully sent async request"}, "failed to send async request", "", ""},
    {"setVoNRMode", {"-1"}, "Nas", 6, "SerialIntParam", "serial = 7, mode = -1", "id", Style::SYNC, "handleSetVoNRMode", "modem_set_vonr_mode(-1)", {"successfully set vonr mode"}, "failed to set vonr mode", "", ""},
    {"getVoNRMode", {}, "Nas", 7, "SerialVoidParam", "serial = 7", "id", Style::SYNC, "handleGetVoNRMode", "modem_get_vonr_mode()", {"successfully get vonr mode"}, "failed to get vonr mode", R"(,"mode":1)", R"(,"mode":0)"},
    {"isImsProfileNormal", {}, "Wds", 2, "SerialVoidParam", "serial = 7", "id", Style::SYNC, "handleCheckImsProfileNormalMessage", "modem_qdp_check_ims_profile()", {"successfully check ims profile"}, "failed to check ims profile", R"(,"result":6)", R"(,"result":0)"},
    {"deprioritizeNr", {"3"}, "Nas", 8, "SerialIntParam", "serial = 7, mode = 3", "id", Style::SYNC, "handleSetDeprioritizeNrMode", "modem_deprioritize_nr_mode(3)", {"successfully deprioritize nr"}, "failed to deprioritize nr", "", ""},
    {"deleteImsProfile", {}, "Wds", 3, "SerialVoidParam", "serial = 7", "id", Style::OWN, "handleDeleteImsProfileMessage", "modem_qdp_get_ims_profile(24)", {}, "failed to send sync request to get ims profile list", "", ""},
    {"setSarState", {"-3"}, "Sar", 2, "SerialIntParam", "serial = 7, state = -3", "name", Style::SYNC, "handleSetSarStateMessage", "modem_set_sar_dsi(-3)", {"sar state = -3", "successfully set rf sar state to -3"}, "failed to set rf sar state to -3", "", ""},
    {"getOperatingMode", {}, "Dms", 1, "SerialVoidParam", "serial = 7", "name", Style::SYNC, "handleGetOperatingModeMessage", "modem_get_operating_mode()", {"got operating mode 3"}, "failed to get operating mode", R"(,"mode":3)", R"(,"mode":0)"},
    {"setOperatingMode", {"-1"}, "Dms", 2, "SerialIntParam", "serial = 7, mode = -1", "name", Style::SYNC, "handleSetOperatingModeMessage", "modem_set_operating_mode(-1)", {"successfully set operating mode"}, "failed to set operating mode", "", ""},
    {"sendLogControlResp", {}, "At", 3, "SerialVoidParam", "serial = 7", "name", Style::OWN, "handleSendLogControlRespMessage", "", {}, "", "", ""},
    };
    // clang-format on
    return rows;
}

std::string abbreviationOf(const RequestRow& row) {
    std::string name = row.client;
    std::transform(name.begin(), name.end(), name.begin(), [](char c) { return toupper(c); });
    return name;
}

int serviceOf(const RequestRow& row) {
    static const auto& services = *new std::map<std::string, int>{
            {"Wds", 1}, {"Dms", 2}, {"Nas", 3}, {"At", 8}, {"Sar", 17}, {"Pdc", 36}, {"Vs", 228}};
    return services.at(row.client);
}

void scriptModem() {
    ScriptedModem& modem = ScriptedModem::instance();
    const auto gives = [&](const char* function, auto value) {
        modem.onCall(function, [value](void* out) { memcpy(out, &value, sizeof(value)); });
    };
    gives("modem_get_operating_mode", int32_t{3});
    gives("modem_get_nr_network_mode", uint32_t{2});
    gives("modem_get_vonr_mode", uint32_t{1});
    gives("modem_qdp_check_ims_profile", uint32_t{6});
    gives("modem_api_get_simlock_info", modem_simlock_info{1, 2, 3});
    gives("modem_api_get_simlock_fuse_status", uint32_t{4});
    gives("modem_verify_nv", modem_nv_verification{1, 5, 0});
    for (const char* function :
         {"modem_read_nv_for_subid", "modem_read_efs_for_subid", "modem_read_prl"}) {
        modem.onCall(function, [](void* out) {
            auto& [buffer, length] = *static_cast<std::pair<uint8_t*, size_t*>*>(out);
            buffer[0] = 10;
            buffer[1] = 11;
            *length = 2;
        });
    }
}
