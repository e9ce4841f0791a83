#include "LogMethods.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "Api.h"
#include "params/MessageIds.h"

namespace logs {

namespace {

/** Which message of which client carries which request. */
struct MessageRow {
    const char* client;
    int id;
    const char* method;
};

constexpr MessageRow MESSAGES[] = {
        {"AtQmiClient", AtMessage::SEND_LOG_CONTROL_RESP, "sendLogControlResp"},
        {"DmsQmiClient", DmsMessage::GET_OPERATING_MODE, "getOperatingMode"},
        {"DmsQmiClient", DmsMessage::SET_OPERATING_MODE, "setOperatingMode"},
        {"NasQmiClient", NasMessage::SWITCH_NR_NETWORK_MODE, "switchNRNetworkMode"},
        {"NasQmiClient", NasMessage::GET_NR_NETWORK_MODE, "getNRNetworkMode"},
        {"NasQmiClient", NasMessage::SET_VONR_MODE, "setVoNRMode"},
        {"NasQmiClient", NasMessage::GET_VONR_MODE, "getVoNRMode"},
        {"NasQmiClient", NasMessage::SET_DEPRIORITIZE_NR_MODE, "deprioritizeNr"},
        {"WdsQmiClient", WdsMessage::CHECK_IMS_PROFILE_NORMAL, "isImsProfileNormal"},
        {"WdsQmiClient", WdsMessage::DELETE_IMS_PROFILE, "deleteImsProfile"},
        {"SarQmiClient", SarMessage::SET_SAR_STATE, "setSarState"},
        {"PdcQmiClient", PdcMessage::GET_ACTIVE_MBN_INFO, "getActiveMbnInfo"},
        {"PdcQmiClient", PdcMessage::GET_META_MBN_INFO, "getMetaMbnInfo"},
        {"PdcQmiClient", PdcMessage::GET_MBN_LIST, "getMbnList"},
        {"PdcQmiClient", PdcMessage::SELECT_MBN, "selectMbn"},
        {"PdcQmiClient", PdcMessage::SELECT_MBN_EXT, "selectMbnExt"},
        {"PdcQmiClient", PdcMessage::DELETE_ALL_MBNS, "deleteAllMbns"},
        {"PdcQmiClient", PdcMessage::LOAD_MBN_CONFIG, "loadMbnConfig"},
        {"PdcQmiClient", PdcMessage::ACTIVATE_MBN, "activateMbn"},
        {"PdcQmiClient", PdcMessage::DEACTIVATE_MBN, "deactivateMbn"},
        {"PdcQmiClient", PdcMessage::ACTIVATE_REGULAR_MBN, "activateRegularMbn"},
        {"VsQmiClient", VsMessage::GET_BUILD_TIME, "getBuildTime"},
        {"VsQmiClient", VsMessage::GET_BUILD_ID, "getBuildId"},
        {"VsQmiClient", VsMessage::ACTIVATE_MBN_BY_NAME, "activateMbnByName"},
        {"VsQmiClient", VsMessage::RESTORE_MBN, "restoreMbn"},
        {"VsQmiClient", VsMessage::SET_AGPS_TEST_MODE, "setAgpsTestMode"},
        {"VsQmiClient", VsMessage::GET_AGPS_TEST_MODE, "getAgpsTestMode"},
        {"VsQmiClient", VsMessage::GET_MODEM_POWER_SAVE_MODE, "getModemPowerSaveMode"},
        {"VsQmiClient", VsMessage::SET_MODEM_POWER_SAVE_MODE, "setModemPowerSaveMode"},
        {"VsQmiClient", VsMessage::SET_MODEM_PROPERTY, "setModemProperty"},
        {"VsQmiClient", VsMessage::GET_MODEM_PROPERTY, "getModemProperty"},
        {"VsQmiClient", VsMessage::DELETE_MODEM_PROPERTY, "deleteModemProperty"},
        {"VsQmiClient", VsMessage::DO_COMMON_INTERFACE_DEBUG, "doCommonInterfaceDebug"},
        {"VsQmiClient", VsMessage::SET_MODEM_POWER_SAVE_STATUS, "setModemPowerSaveStatus"},
        {"VsQmiClient", VsMessage::READ_NV_ITEM, "readNVItem"},
        {"VsQmiClient", VsMessage::WRITE_NV_ITEM, "writeNVItem"},
        {"VsQmiClient", VsMessage::READ_EFS_FILE, "readEfsFile"},
        {"VsQmiClient", VsMessage::WRITE_EFS_FILE, "writeEfsFile"},
        {"VsQmiClient", VsMessage::DELETE_EFS_FILE, "deleteEfsFile"},
        {"VsQmiClient", VsMessage::READ_PRL, "readPrl"},
        {"VsQmiClient", VsMessage::WRITE_PRL, "writePrl"},
        {"VsQmiClient", VsMessage::VERIFY_NV, "verifyNV"},
        {"VsQmiClient", VsMessage::GET_SIMLOCK_INFO_STATUS, "getSimlockInfoStatus"},
        {"VsQmiClient", VsMessage::GET_SIMLOCK_INFO_CATEGORY, "getSimlockInfoCategory"},
        {"VsQmiClient", VsMessage::GET_SIMLOCK_INFO_NUMBER_RETRIES_REMAIN,
         "getSimlockInfoNumberRetriesRemain"},
        {"VsQmiClient", VsMessage::GET_SIMLOCK_FUSE_STATUS, "getSimlockFuseStatus"},
        {"VsQmiClient", VsMessage::REBOOT_MODEM, "rebootModem"},
        {"VsQmiClient", VsMessage::GET_BANDS_INFO, "getBandsInfo"},
        {"VsQmiClient", VsMessage::REMOVE_RAT_MASK, "removeRatMask"},
        {"VsQmiClient", VsMessage::ABORT_RRC_CONNECTION, "abortRRCConnection"},
        {"VsQmiClient", VsMessage::SET_RADIO_INFO_REPORT_ENABLED, "setRadioInfoReportEnabled"},
        {"VsQmiClient", VsMessage::DELETE_EFS_FILE_DIR, "deleteEfsFileDir"},
};

/** The requests in the interface's order, and what finds them. */
class Methods {
public:
    static const Methods& instance() {
        static const Methods methods;
        return methods;
    }

    MethodIndex find(std::string_view name) const { return lookUp(mByName, name); }
    MethodIndex findCapital(std::string_view name) const { return lookUp(mByCapital, name); }

    /** @param client a class name, or the name of its service in capitals */
    MethodIndex findMessage(std::string_view client, int id) const {
        for (const MessageRow& row : MESSAGES) {
            const std::string_view rest =
                    std::string_view(row.client)
                            .substr(std::min(client.size(), strlen(row.client)));
            if (row.id == id && (rest.empty() || rest == "QmiClient") &&
                strncasecmp(row.client, client.data(), client.size()) == 0) {
                return find(row.method);
            }
        }
        return NO_METHOD;
    }

    const char* name(MethodIndex index) const { return mAll.at(index)->name; }

private:
    using Names = std::unordered_map<std::string, MethodIndex>;

    Methods() : mAll(api::callable()) {
        for (const hal::Method* method : mAll) {
            std::string name = method->name;
            const auto index = static_cast<MethodIndex>(mByName.size());
            mByName[name] = index;
            name[0] = static_cast<char>(toupper(name[0]));
            mByCapital[name] = index;
        }
    }

    static MethodIndex lookUp(const Names& names, std::string_view name) {
        const auto found = names.find(std::string(name));
        return found != names.end() ? found->second : NO_METHOD;
    }

    std::vector<const hal::Method*> mAll;
    Names mByName;
    Names mByCapital;
};

}  // namespace

const char* methodName(MethodIndex method) {
    return Methods::instance().name(method);
}

MethodIndex methodIndex(std::string_view name) {
    return Methods::instance().find(name);
}

MethodIndex methodIndexOfCapital(std::string_view name) {
    return Methods::instance().findCapital(name);
}

MethodIndex methodOfMessage(std::string_view client, int id) {
    return Methods::instance().findMessage(client, id);
}

}  // namespace logs
