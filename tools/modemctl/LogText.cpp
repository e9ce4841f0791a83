#include "LogText.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
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

/**
 * The texts: %s is a word, which ends at a blank or at what follows it, or the rest at the end of a
 * text; %d a number; %M a request's name; %R a response's function, "respond" and the name with a
 * capital letter; %H a handler's function, which need not have the request's name; * whatever
 * follows. The last word becomes the sign's name, the first number its serial and the second one
 * its err.
 */
struct TextRow {
    Kind kind;
    const char* text;
};

constexpr TextRow TEXTS[] = {
        {Kind::ENTERED, "ModemImpl::%M: serial = %d*"},
        {Kind::HANDLING, "handle: %s is handling message: %d"},
        {Kind::ANSWERED, "%R: serial = %d, err = %d*"},
        {Kind::DELIVERED, "%R: succeed"},
        {Kind::CALLED_BACK,
         "modemApiAsyncCallback: processing modem api %s async callback data for message %d"},
        {Kind::SENT, "%H: successfully sent async request"},
        {Kind::SENT, "%H: successfully sent request to modem"},
        {Kind::SENT, "%H: successfully sent request"},
        {Kind::SENT, "%H: successfully activated regular mbn"},
        {Kind::EVENT_RECEIVED, "received modem api event %d"},
        {Kind::TOKEN, "%R: token is %d"},
        {Kind::EVENT, "RRC STATE CHANGED"},
        {Kind::EVENT, "NR RADIO INFO"},
        {Kind::EVENT, "POWER SAVE MODE REPORT"},
        {Kind::EVENT, "AT command reported"},
        {Kind::EVENT, "async response for %s reported"},
        {Kind::EVENT, "modem api event %d NOT supported"},
        {Kind::CONNECTED, "%s QMI service is connected"},
        {Kind::DISCONNECTED, "%s QMI service is disconnected"},
        {Kind::BIND_FAILED, "%s: failed to bind %s QMI subscription for instance id %d"},
        {Kind::BIND_RETRIED,
         "%s: retry binding %s QMI subscription with instance id %d for %d times, max %d times"},
        {Kind::BIND_GIVEN_UP,
         "%s: retry binding %s QMI subscription with instance id %d reach max %d times"},
        {Kind::AT_COMMAND, "%s: parsed handle = %s, op code = %s, name = %s, token number = %d"},
        {Kind::AT_TOKEN, "%s: parsed token[%d] = %s"},
        {Kind::AT_OK, "%s: successfully sent log control response to modem"},
        {Kind::AT_ERROR, "%s: successfully sent log control error response"},
        {Kind::INSTALLED, "set resp and ind callbacks for HIDL modem service"},
        {Kind::LOADED, "onLoad: loading modem plugin"},
        {Kind::DETAIL, "ModemImpl::%M: no memory for the arguments"},
        {Kind::DETAIL, "%R: respCb null, can't send response"},
        {Kind::DETAIL, "%R: exception = *"},
        {Kind::DETAIL, "%R: event data of *"},
        {Kind::DETAIL, "QMI client is connected, nothing to do"},
        {Kind::DETAIL, "Failed to *"},
        {Kind::DETAIL, "invalid data input for QMI service *"},
        {Kind::DETAIL, "unknow QMI service, can't process service *"},
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

    const std::vector<const hal::Method*>& all() const { return mAll; }

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

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

std::string_view identifierOf(std::string_view text) {
    size_t size = 0;
    while (size < text.size() && (isalnum(static_cast<unsigned char>(text[size])) != 0)) {
        ++size;
    }
    return text.substr(0, size);
}

/** Fills a sign from a text while it follows one row. */
class Matcher {
public:
    Matcher(std::string_view text, Sign& sign) : mText(text), mSign(sign) {}

    bool match(const char* pattern) {
        for (; *pattern != '\0'; ++pattern) {
            if (*pattern == '*') {
                return true;
            }
            if (*pattern != '%') {
                if (mText.empty() || mText.front() != *pattern) {
                    return false;
                }
                mText.remove_prefix(1);
            } else {
                ++pattern;
                if (!take(*pattern, pattern[1])) {
                    return false;
                }
            }
        }
        return mText.empty();
    }

private:
    bool take(char what, char next) {
        switch (what) {
            case 's':
                return word(next);
            case 'd':
                return number();
            case 'M':
                return method(identifierOf(mText));
            case 'H':
                return function("handle", "Message");
            default:
                return function("respond", "Async") && mSign.method != NO_METHOD;
        }
    }

    bool word(char end) {
        const char stops[] = {' ', end, '\0'};
        mSign.name = end == '\0' ? mText : mText.substr(0, mText.find_first_of(stops));
        mText.remove_prefix(mSign.name.size());
        return end == '\0' || !mSign.name.empty();
    }

    bool number() {
        int32_t value = 0;
        const auto [end, error] = std::from_chars(mText.data(), mText.data() + mText.size(), value);
        mText.remove_prefix(end - mText.data());
        if (int32_t* const places[] = {&mSign.serial, &mSign.err}; mNumbers < std::size(places)) {
            *places[mNumbers++] = value;
        }
        return error == std::errc();
    }

    /** A function of the request's, named with a capital letter between a prefix and a suffix. */
    bool function(std::string_view prefix, std::string_view suffix) {
        if (!startsWith(mText, prefix)) {
            return false;
        }
        std::string_view name = identifierOf(mText);
        mText.remove_prefix(name.size());
        name.remove_prefix(prefix.size());
        const bool cut =
                name.size() > suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
        name.remove_suffix(cut ? suffix.size() : 0);
        mSign.method = Methods::instance().findCapital(name);
        return true;
    }

    bool method(std::string_view name) {
        mSign.method = Methods::instance().find(name);
        mText.remove_prefix(name.size());
        return mSign.method != NO_METHOD;
    }

    std::string_view mText;
    Sign& mSign;
    size_t mNumbers = 0;
};

/** "[0] " stands before all that was logged after the instance was known. */
void dropInstance(Sign& sign) {
    const size_t end = sign.text.find("] ");
    int instance = 0;
    if (!startsWith(sign.text, "[") || end == std::string_view::npos) {
        return;
    }
    const char* first = sign.text.data() + 1;
    const char* last = sign.text.data() + end;
    if (const auto [stop, error] = std::from_chars(first, last, instance);
        error == std::errc() && stop == last) {
        sign.instance = instance;
        sign.text.remove_prefix(end + 2);
    }
}

/** A text of the plug-in that is told nowhere above begins with the function that logs it. */
Kind kindOfOthers(std::string_view text) {
    const std::string_view function = identifierOf(text);
    const bool named = !function.empty() && startsWith(text.substr(function.size()), ": ");
    return named && !startsWith(text, "respond") ? Kind::DETAIL : Kind::UNKNOWN;
}

}  // namespace

Sign readText(std::string_view text) {
    Sign blank;
    blank.text = text;
    dropInstance(blank);
    for (const TextRow& row : TEXTS) {
        Sign sign = blank;
        if (!Matcher(sign.text, sign).match(row.text)) {
            continue;
        }
        sign.kind = row.kind;
        if (sign.kind == Kind::HANDLING || sign.kind == Kind::CALLED_BACK) {
            sign.method = Methods::instance().findMessage(sign.name, sign.serial);
        } else if (sign.kind == Kind::EVENT && sign.name.empty()) {
            sign.name = sign.text;
        }
        return sign;
    }
    blank.kind = kindOfOthers(blank.text);
    return blank;
}

const char* methodName(MethodIndex method) {
    return Methods::instance().all().at(method)->name;
}

size_t methodCount() {
    return Methods::instance().all().size();
}

MethodIndex methodIndex(std::string_view name) {
    return Methods::instance().find(name);
}

const char* handlerOf(MethodIndex method) {
    for (const MessageRow& row : MESSAGES) {
        if (row.method == std::string_view(methodName(method))) {
            return row.client;
        }
    }
    return "";
}

}  // namespace logs
