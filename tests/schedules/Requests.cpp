#include "tests/schedules/Requests.h"

#include <vendor/lyr/modem/1.0/table.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "tests/support/ScriptedModem.h"

namespace {

using P = Payload;
using W = Way;

// clang-format off
const Request ROWS[] = {
    {"switchNRNetworkMode", NAS, W::SYNC, "modem_switch_nr_network_mode(%0)"},
    {"getNRNetworkMode", NAS, W::SYNC, "modem_get_nr_network_mode()", P::WORD},
    {"getBuildTime", VS, W::ASYNC, "modem_get_build_time()", P::BUILD},
    {"getBuildId", VS, W::ASYNC, "modem_get_build_id()", P::BUILD},
    {"getActiveMbnInfo", PDC, W::TOKEN, "modem_pdc_get_activate_config_info(%0, %t)", P::MBN, 17},
    {"getMetaMbnInfo", PDC, W::TOKEN, "modem_pdc_get_config_info(%#0, %1, %t)", P::MBN, 18},
    {"getMbnList", PDC, W::FILE, "", P::LIST},
    {"selectMbn", PDC, W::SYNC, "modem_pdc_set_selected_config_info(%0, %#1)"},
    {"selectMbnExt", PDC, W::SYNC, "modem_pdc_set_selected_config_info_ext(%0, %#1, %2)"},
    {"deleteAllMbns", PDC, W::SYNC, "modem_pdc_delete_all_mbns()"},
    {"loadMbnConfig", PDC, W::LOAD, "modem_pdc_load_configuration("},
    {"activateMbn", PDC, W::SYNC, "modem_pdc_activate_config(%0)"},
    {"deactivateMbn", PDC, W::SYNC, "modem_pdc_deactivate_config(%0)"},
    {"activateRegularMbn", PDC, W::TOKEN, "modem_pdc_activate_regular_config(%0, %t)", P::NONE, 22},
    {"activateMbnByName", VS, W::ASYNC, "modem_api_active_mbn(%0)"},
    {"restoreMbn", VS, W::ASYNC, "modem_api_restore_mbn()"},
    {"readNVItem", VS, W::SYNC, "modem_read_nv_for_subid(%-1, %0, %2, 512)", P::DATA},
    {"writeNVItem", VS, W::SYNC, "modem_write_nv_for_subid(%-1, %0, %3)"},
    {"verifyNV", VS, W::SYNC, "modem_verify_nv(%0, %1)", P::VERIFIED},
    {"readEfsFile", VS, W::SYNC, "modem_read_efs_for_subid(%1, %0, 10240)", P::DATA},
    {"writeEfsFile", VS, W::SYNC, "modem_write_efs_for_subid(%1, %0, %2)"},
    {"deleteEfsFile", VS, W::SYNC, "modem_del_efs_for_subid(%1, %0)"},
    {"deleteEfsFileDir", VS, W::SYNC, "modem_del_efs_file_dir(%0)"},
    {"setAgpsTestMode", VS, W::ASYNC, "modem_api_set_agps_test_mode(%0)"},
    {"getAgpsTestMode", VS, W::ASYNC, "modem_api_get_agps_test_mode()", P::WORD},
    {"getModemPowerSaveMode", VS, W::ASYNC, "modem_api_get_power_save_mode()", P::BYTE},
    {"setModemPowerSaveMode", VS, W::ASYNC, "modem_api_set_power_save_mode(%0)"},
    {"setModemPowerSaveStatus", VS, W::ASYNC, "modem_api_set_power_save_status(%0)"},
    {"setModemProperty", VS, W::ASYNC, "modem_api_set_modem_property(%p)"},
    {"getModemProperty", VS, W::ASYNC, "modem_api_get_modem_property(%0)", P::TEXT},
    {"deleteModemProperty", VS, W::SYNC, "modem_api_delete_modem_property_sync(%0)"},
    {"doCommonInterfaceDebug", VS, W::SYNC, "modem_common_interface_debug(%0)"},
    {"readPrl", VS, W::SYNC, "modem_read_prl(%0, 10240)", P::DATA},
    {"writePrl", VS, W::SYNC, "modem_write_prl(%0, %1)"},
    {"getSimlockInfoStatus", VS, W::SYNC, "modem_api_get_simlock_info()", P::BYTE},
    {"getSimlockInfoCategory", VS, W::SYNC, "modem_api_get_simlock_info()", P::BYTE1},
    {"getSimlockInfoNumberRetriesRemain", VS, W::SYNC, "modem_api_get_simlock_info()", P::BYTE2},
    {"getSimlockFuseStatus", VS, W::SYNC, "modem_api_get_simlock_fuse_status()", P::WORD},
    {"rebootModem", VS, W::SYNC, "modem_subsystem_reboot()"},
    {"getBandsInfo", VS, W::ASYNC, "modem_get_bands_info()", P::BANDS},
    {"removeRatMask", VS, W::ASYNC, "modem_api_remove_rat_mask()"},
    {"abortRRCConnection", VS, W::ASYNC, "modem_abort_rrc_connection()"},
    {"setRadioInfoReportEnabled", VS, W::ASYNC, "modem_api_set_radio_info_report_enabled(%0)"},
    {"setVoNRMode", NAS, W::SYNC, "modem_set_vonr_mode(%0)"},
    {"getVoNRMode", NAS, W::SYNC, "modem_get_vonr_mode()", P::WORD},
    {"isImsProfileNormal", WDS, W::SYNC, "modem_qdp_check_ims_profile()", P::WORD},
    {"deprioritizeNr", NAS, W::SYNC, "modem_deprioritize_nr_mode(%0)"},
    {"deleteImsProfile", WDS, W::DELETE, "modem_qdp_get_ims_profile(24)"},
    {"setSarState", SAR, W::SYNC, "modem_set_sar_dsi(%0)"},
    {"getOperatingMode", DMS, W::SYNC, "modem_get_operating_mode()", P::WORD},
    {"setOperatingMode", DMS, W::SYNC, "modem_set_operating_mode(%0)"},
    {"sendLogControlResp", AT, W::CONFIRM, ""},
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
    switch (type.kind) {
        case hal::Type::Kind::STRING:
            return value.bytes.c_str();  // ends at its first NUL
        case hal::Type::Kind::VEC:
            return hex(value.bytes);
        default:
            return std::to_string(value.number);
    }
}

}  // namespace

const std::vector<Request>& requests() {
    static const auto& all = *[] {
        using namespace vendor::lyr::modem::V1_0;
        auto* rows = new std::vector<Request>(std::begin(ROWS), std::end(ROWS));
        for (Request& row : *rows) {
            row.method = find(IModem_table, row.name);
            row.response = find(IModemResponse_table, row.name + std::string("Response"));
        }
        return rows;
    }();
    return all;
}

std::string callOf(const Request& request, int32_t serial, const std::vector<Value>& args) {
    std::string call;
    for (const char* at = request.call; *at != '\0'; ++at) {
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
