#include "tests/support/Requests.h"

#include <vendor/lyr/modem/1.0/table.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "tests/support/ScriptedModem.h"

namespace {

using P = Payload;
using W = Way;

constexpr Payload NO = P::NONE;
constexpr Posts ID = Posts::BY_ID;
constexpr Posts NAME = Posts::BY_NAME;
constexpr Posts SHORT = Posts::SHORT;
constexpr const char* SERIAL = "serial = %t";
constexpr const char* MODE = "serial = %t, mode = %0";
constexpr const char* STATUS = "serial = %t, status = %0";
constexpr const char* STATE = "serial = %t, state = %0";
constexpr const char* NONE = nullptr;
constexpr const char* SENT = "successfully sent async request";  // by several synchronous ones, too
constexpr const char* SYNC_SENT = "successfully sent sync request";
constexpr const char* SYNC_FAILED = "failed to send sync request";
constexpr const char* FAILED = "failed to send async request";

// clang-format off
const Request ROWS[] = {
    {"switchNRNetworkMode", NAS, 4, W::SYNC, "modem_switch_nr_network_mode(%0)", ID, MODE, NO,
     "successfully set switch nr network mode", "failed to switch nr network mode",
     "handleSwitchNRNetworkMode"},
    {"getNRNetworkMode", NAS, 5, W::SYNC, "modem_get_nr_network_mode()", ID, SERIAL, P::WORD,
     "successfully got NR Network mode", "failed to get nr5g band pref", "handleGetNRNetworkMode"},
    {"getBuildTime", VS, 1, W::ASYNC, "modem_get_build_time()", ID, SERIAL, P::BUILD},
    {"getBuildId", VS, 2, W::ASYNC, "modem_get_build_id()", ID, SERIAL, P::BUILD},
    {"getActiveMbnInfo", PDC, 1, W::TOKEN, "modem_pdc_get_activate_config_info(%0, %t)", NAME, NONE,
     P::MBN, "successfully sent request to modem", ""},
    {"getMetaMbnInfo", PDC, 2, W::TOKEN, "modem_pdc_get_config_info(%#0, %1, %t)", NAME, NONE,
     P::MBN, "successfully sent request", "failed to send request"},
    {"getMbnList", PDC, 3, W::FILE, "", NAME, NONE, P::LIST},
    {"selectMbn", PDC, 4, W::SYNC, "modem_pdc_set_selected_config_info(%0, %#1)", NAME, NONE, NO,
     "successfully selected mbn", ""},
    {"selectMbnExt", PDC, 5, W::SYNC, "modem_pdc_set_selected_config_info_ext(%0, %#1, %2)", NAME,
     NONE, NO, "successfully selected mbn", ""},
    {"deleteAllMbns", PDC, 6, W::SYNC, "modem_pdc_delete_all_mbns()", NAME, NONE, NO,
     "successfully delete all mbns", ""},
    {"loadMbnConfig", PDC, 7, W::LOAD, "modem_pdc_load_configuration(", NAME, NONE},
    {"activateMbn", PDC, 8, W::SYNC, "modem_pdc_activate_config(%0)", NAME, NONE, NO,
     "successfully activate mbn", ""},
    {"deactivateMbn", PDC, 9, W::SYNC, "modem_pdc_deactivate_config(%0)", NAME, NONE, NO,
     "successfully deactivated mbn", ""},
    {"activateRegularMbn", PDC, 10, W::TOKEN, "modem_pdc_activate_regular_config(%0, %t)", NAME,
     NONE, NO, "successfully activated regular mbn", ""},
    {"activateMbnByName", VS, 4, W::ASYNC, "modem_api_active_mbn(%0)", ID, NONE},
    {"restoreMbn", VS, 5, W::ASYNC, "modem_api_restore_mbn()", ID, SERIAL},
    {"readNVItem", VS, 16, W::SYNC, "modem_read_nv_for_subid(%-1, %0, %2, 512)", SHORT, NONE,
     P::DATA},
    {"writeNVItem", VS, 17, W::SYNC, "modem_write_nv_for_subid(%-1, %0, %3)", SHORT, NONE},
    {"verifyNV", VS, 23, W::SYNC, "modem_verify_nv(%0, %1)", SHORT, NONE, P::VERIFIED},
    {"readEfsFile", VS, 18, W::SYNC, "modem_read_efs_for_subid(%1, %0, 10240)", SHORT, NONE,
     P::DATA},
    {"writeEfsFile", VS, 19, W::SYNC, "modem_write_efs_for_subid(%1, %0, %2)", SHORT, NONE},
    {"deleteEfsFile", VS, 20, W::SYNC, "modem_del_efs_for_subid(%1, %0)", SHORT, NONE},
    {"deleteEfsFileDir", VS, 52, W::SYNC, "modem_del_efs_file_dir(%0)", SHORT, NONE},
    {"setAgpsTestMode", VS, 7, W::ASYNC, "modem_api_set_agps_test_mode(%0)", ID, MODE},
    {"getAgpsTestMode", VS, 8, W::ASYNC, "modem_api_get_agps_test_mode()", ID, SERIAL, P::WORD},
    {"getModemPowerSaveMode", VS, 9, W::ASYNC, "modem_api_get_power_save_mode()", ID, SERIAL,
     P::BYTE},
    {"setModemPowerSaveMode", VS, 10, W::ASYNC, "modem_api_set_power_save_mode(%0)", ID, MODE},
    {"setModemPowerSaveStatus", VS, 15, W::ASYNC, "modem_api_set_power_save_status(%0)", ID,
     STATUS},
    {"setModemProperty", VS, 11, W::ASYNC, "modem_api_set_modem_property(%p)", SHORT, SERIAL},
    {"getModemProperty", VS, 12, W::ASYNC, "modem_api_get_modem_property(%0)", ID, SERIAL, P::TEXT},
    {"deleteModemProperty", VS, 13, W::SYNC, "modem_api_delete_modem_property_sync(%0)", ID,
     SERIAL},
    {"doCommonInterfaceDebug", VS, 14, W::SYNC, "modem_common_interface_debug(%0)", ID, SERIAL},
    {"readPrl", VS, 21, W::SYNC, "modem_read_prl(%0, 10240)", ID, NONE, P::DATA},
    {"writePrl", VS, 22, W::SYNC, "modem_write_prl(%0, %1)", SHORT, NONE},
    {"getSimlockInfoStatus", VS, 26, W::SYNC, "modem_api_get_simlock_info()", ID, SERIAL, P::BYTE,
     SENT, FAILED, "handleGetSimlockInfoStateMessage"},
    {"getSimlockInfoCategory", VS, 27, W::SYNC, "modem_api_get_simlock_info()", ID, SERIAL,
     P::BYTE1, SENT, FAILED},
    {"getSimlockInfoNumberRetriesRemain", VS, 28, W::SYNC, "modem_api_get_simlock_info()", ID,
     SERIAL, P::BYTE2, SENT, FAILED},
    {"getSimlockFuseStatus", VS, 34, W::SYNC, "modem_api_get_simlock_fuse_status()", ID, SERIAL,
     P::WORD, SENT, FAILED, "handleGetSimlockFuseStateMessage"},
    {"rebootModem", VS, 37, W::SYNC, "modem_subsystem_reboot()", ID, SERIAL, NO, SENT, FAILED},
    {"getBandsInfo", VS, 44, W::ASYNC, "modem_get_bands_info()", ID, SERIAL, P::BANDS},
    {"removeRatMask", VS, 48, W::ASYNC, "modem_api_remove_rat_mask()", ID, SERIAL},
    {"abortRRCConnection", VS, 49, W::ASYNC, "modem_abort_rrc_connection()", ID, SERIAL},
    {"setRadioInfoReportEnabled", VS, 51, W::ASYNC, "modem_api_set_radio_info_report_enabled(%0)",
     ID, MODE},
    {"setVoNRMode", NAS, 6, W::SYNC, "modem_set_vonr_mode(%0)", ID, MODE, NO,
     "successfully set vonr mode", "failed to set vonr mode", "handleSetVoNRMode"},
    {"getVoNRMode", NAS, 7, W::SYNC, "modem_get_vonr_mode()", ID, SERIAL, P::WORD,
     "successfully get vonr mode", "failed to get vonr mode", "handleGetVoNRMode"},
    {"isImsProfileNormal", WDS, 2, W::SYNC, "modem_qdp_check_ims_profile()", ID, SERIAL, P::WORD,
     "successfully check ims profile", "failed to check ims profile",
     "handleCheckImsProfileNormalMessage"},
    {"deprioritizeNr", NAS, 8, W::SYNC, "modem_deprioritize_nr_mode(%0)", ID, MODE, NO,
     "successfully deprioritize nr", "failed to deprioritize nr", "handleSetDeprioritizeNrMode"},
    {"deleteImsProfile", WDS, 3, W::DELETE, "modem_qdp_get_ims_profile(24)", ID, SERIAL},
    {"setSarState", SAR, 2, W::SYNC, "modem_set_sar_dsi(%0)", NAME, STATE, NO,
     "successfully set rf sar state to 5", "failed to set rf sar state to 5"},
    {"getOperatingMode", DMS, 1, W::SYNC, "modem_get_operating_mode()", NAME, SERIAL, P::WORD,
     "got operating mode 0", "failed to get operating mode"},
    {"setOperatingMode", DMS, 2, W::SYNC, "modem_set_operating_mode(%0)", NAME, MODE, NO,
     "successfully set operating mode", "failed to set operating mode"},
    {"sendLogControlResp", AT, 3, W::CONFIRM, "", NAME, SERIAL},
};
// clang-format on

const hal::Method* find(const hal::Interface& interface, const std::string& name) {
    const auto* end = interface.methods + interface.methodCount;
    const auto* found = std::find_if(
            interface.methods, end, [&](const hal::Method& method) { return method.name == name; });
    return found != end ? found : throw std::logic_error("the interface has no " + name);
}

std::string hex(const std::string& bytes) {
    return toHex(bytes.data(), bytes.size());
}

void put(std::string& record, size_t at, const std::string& text, size_t lengthAt) {
    record.replace(at, text.size(), text);
    const auto length = static_cast<uint32_t>(text.size());
    memcpy(&record[lengthAt], &length, sizeof(length));
}

std::string propertyRecord(const std::string& name, const std::string& value) {
    std::string record(576, '\0');
    put(record, 1, name, 56);
    put(record, 60, value, 572);
    return record;
}

std::string argument(const hal::Type& type, const Value& value) {
    if (type.kind == hal::Type::Kind::STRING) {
        return value.bytes.substr(0, value.bytes.find('\0'));
    }
    return type.kind == hal::Type::Kind::VEC ? hex(value.bytes) : std::to_string(value.number);
}

}  // namespace

const std::vector<Request>& requests() {
    static const auto& all = *[] {
        using namespace vendor::lyr::modem::V1_0;
        auto* rows = new std::vector<Request>(std::begin(ROWS), std::end(ROWS));
        for (Request& row : *rows) {
            row.method = find(IModem_table, row.name);
            row.response = find(IModemResponse_table, row.name + std::string("Response"));
            row.event = row.way != W::TOKEN ? 0 : row.id == 10 ? 22 : 16 + row.id;
            row.done = row.done != nullptr ? row.done : row.way == W::ASYNC ? SENT : SYNC_SENT;
            row.refused = row.refused != nullptr ? row.refused
                          : row.way == W::ASYNC  ? FAILED
                                                 : SYNC_FAILED;
        }
        return rows;
    }();
    return all;
}

std::string filled(const char* pattern, const Request& request, int32_t serial,
                   const std::vector<Value>& args) {
    std::string call;
    for (const char* at = pattern; *at != '\0'; ++at) {
        if (*at != '%') {
            call += *at;
        } else if (*++at == 't') {
            call += std::to_string(serial);
        } else if (*at == 'p') {
            call += hex(propertyRecord(args[0].bytes, args[1].bytes));
        } else if (*at == '-') {
            call += std::to_string(static_cast<int8_t>(args[*++at - '0'].number));
        } else if (*at == '#') {
            std::string id = args[*++at - '0'].bytes;
            id.resize(124);
            call += hex(id);
        } else {
            const size_t index = *at - '0';
            call += argument(*request.method->args[index + 1].type, args[index]);
        }
    }
    return call;
}
