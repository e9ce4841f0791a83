#include "clients/AtQmiClient.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <thread>

#include <cutils/properties.h>

#include "params/MessageIds.h"
#include "params/Params.h"

const std::string& AtQmiClient::RTTI_TYPE = *new std::string("AtQmiClient");
const QmiService AtQmiClient::SERVICE{MODEM_API_QMI_SERVICE_AT, "AT", RTTI_TYPE};

namespace {

constexpr const char* REPORT = "reportAtLogControlInfo";  // name of the report in the log
constexpr size_t REPORTED_NAME_SIZE = 40;                 // of the name in a report, with its NUL
constexpr size_t INDEX_ROOM = 6;  // of "_" and up to five characters of the index

enum : uint8_t { LOG_MODE_STOP = 0, LOG_MODE_START = 1 };
enum : uint8_t { TEST_SUCCESS = 0, TEST_FAILURE = 1, TEST_UNRECOGNISED = 2, TEST_NONE = 3 };
enum : uint32_t { RESPONSE_ERROR = 0, RESPONSE_SUCCESS = 1, RESPONSE_KIND = 3 };

/** Owns the token strings of a command event, which the receiver has to free. */
class TokenStrings {
public:
    explicit TokenStrings(const modem_atlog_cmd_type& command) : mCommand(command) {}
    ~TokenStrings() {
        for (size_t i = 0; i < count(mCommand); ++i) {
            free(mCommand.tokens[i]);
        }
    }
    TokenStrings(const TokenStrings&) = delete;
    TokenStrings& operator=(const TokenStrings&) = delete;

    /** How many tokens the record holds: the reported number, at most as many as it has room. */
    static size_t count(const modem_atlog_cmd_type& command) {
        return std::min<size_t>(command.token_count, MODEM_ATLOG_TOKENS_MAX);
    }

private:
    const modem_atlog_cmd_type& mCommand;
};

/** Frees the tokens of an event that could not be posted. Data of another size is no command. */
void freeTokens(const void* data, size_t len) {
    modem_atlog_cmd_type command;
    if (data != nullptr && len == sizeof(command)) {
        memcpy(&command, data, sizeof(command));
        const TokenStrings owned(command);
    }
}

/** A property's value, or the default. */
struct PropertyValue {
    PropertyValue(const char* key, const char* defaultValue) {
        property_get(key, text, defaultValue);
    }
    size_t length() const { return strlen(text); }

    char text[PROPERTY_VALUE_MAX] = {};
};

int setFirstIndex(const char* func) {
    if (property_set(AtQmiClient::AT_LOG_TCINDEX_PROPERTY, "1") != 0) {
        LOG_E("%s: failed to set property %s", func, AtQmiClient::AT_LOG_TCINDEX_PROPERTY);
        return ERRNO_FAILED;
    }
    return ERRNO_SUCCESS;
}

}  // namespace

AtQmiClient::AtQmiClient(const std::shared_ptr<ModemResponseProxy>& responseProxy,
                         const std::shared_ptr<ModemIndicationProxy>& indicationProxy,
                         std::chrono::milliseconds reportDelay)
    : QmiClient(SERVICE, responseProxy, indicationProxy), mReportDelay(reportDelay) {
    enableRtti(RTTI_TYPE);
}

int AtQmiClient::handle(std::shared_ptr<Message> msg) {
    static constexpr Route<AtQmiClient> ROUTES[] = {
            {AtMessage::REGISTER_AT_COMMAND_IND, &AtQmiClient::handleRegisterAtCommandIndMessage},
            {AtMessage::PROCESS_AT_COMMAND, &AtQmiClient::handleProcessAtCommandMessage},
            {AtMessage::SEND_LOG_CONTROL_RESP, &AtQmiClient::handleSendLogControlRespMessage},
    };
    return accepts(__func__, msg) ? route(*this, __func__, ROUTES, msg) : ERRNO_INVALID_PARAM;
}

void AtQmiClient::onConnected() {
    logConnected(__func__);
    registerAtCommandInd();
}

void AtQmiClient::modemApiAsyncCallback(const void*, size_t, void* cookie, modem_api_result_type) {
    refuseAsync(SERVICE, __func__, cookie);
}

ClientState AtQmiClient::getState() const {
    ClientState state = QmiClient::getState();
    state.openCommand = mProcessing;
    return state;
}

// ---- Registration, and the report of a log that was left running --------------------------------

int AtQmiClient::registerAtCommandInd() {
    LOG_I("%s: internal request", __func__);
    return postRecord(PostTexts::WITHOUT_SERIAL, __func__, AtMessage::REGISTER_AT_COMMAND_IND,
                      INTERNAL_SERIAL, nullptr);
}

int AtQmiClient::handleRegisterAtCommandIndMessage(const MessagePtr&) {
    const Errno err = checkConnected(__func__);
    if (err != ERRNO_SUCCESS) {
        return err;
    }
    if (modem_atlog_cmd_reg(sAtLogCommandName) == 0) {
        LOG_I("%s: successfully registered AT command indication", __func__);
        return ERRNO_SUCCESS;
    }
    LOG_E("%s: failed to register AT command indication", __func__);
    // The report starts after a failed registration only; a successful one must start none.
    if (!mReported.exchange(true)) {
        startReportThread();
    }
    return ERRNO_FAILED;
}

void AtQmiClient::startReportThread() {
    const auto self = std::static_pointer_cast<AtQmiClient>(shared_from_this());
    try {
        std::thread(runReport, std::weak_ptr<AtQmiClient>(self), mReportDelay).detach();
    } catch (const std::exception& error) {
        LOG_E("%s: no thread to report AT log control info: %s", __func__, error.what());
    }
}

void AtQmiClient::runReport(const std::weak_ptr<AtQmiClient>& client,
                            std::chrono::milliseconds delay) {
    bool on = false;
    char name[REPORTED_NAME_SIZE] = {};
    if (retrieveAtLogStatus(&on, name, sizeof(name)) != ERRNO_SUCCESS) {
        return;
    }
    if (!on) {
        LOG_I("%s: no need to report AT log contorl info at 1st time connected to AT QMI service",
              REPORT);
        return;
    }
    std::this_thread::sleep_for(delay);
    if (const auto self = client.lock()) {
        self->reportAtLogControlInfo(name);
    }
}

void AtQmiClient::reportAtLogControlInfo(const char* tcName) {
    LOG_I("%s: report AT log control info at 1st time connected to AT QMI service", __func__);
    try {
        mIndicationProxy->indicateAtLogControlInfo(LOG_MODE_START, TEST_NONE, tcName);
    } catch (const std::bad_alloc&) {
        LOG_E("%s: no memory to report AT log control info", __func__);
    }
}

int AtQmiClient::retrieveAtLogStatus(bool* on, char* name, size_t size) {
    if (on == nullptr || name == nullptr || size < INDEX_ROOM) {
        LOG_E("%s: invalid param input", __func__);
        return ERRNO_INVALID_PARAM;
    }
    const PropertyValue status(AT_LOG_STATUS_PROPERTY, "0");
    *on = status.text[0] == '1';
    LOG_I("%s: log on = %s", __func__, *on ? "true" : "false");
    if (!*on) {
        return ERRNO_SUCCESS;
    }
    const PropertyValue stored(AT_LOG_TCNAME_PROPERTY, "");
    const size_t storedMax = size - INDEX_ROOM;
    if (stored.length() >= storedMax) {
        LOG_W("%s: tcName too long, should be truncated", __func__);
    }
    const PropertyValue index(AT_LOG_TCINDEX_PROPERTY, "");
    const bool appended = index.length() < INDEX_ROOM;
    snprintf(name, size, "%.*s_%s", static_cast<int>(storedMax), stored.text,
             appended ? index.text : "");
    if (!appended) {
        LOG_E("%s: tcIndex string too long, should not append to tcName", __func__);
        return ERRNO_FAILED;
    }
    char next[PROPERTY_VALUE_MAX];
    snprintf(next, sizeof(next), "%d", atoi(index.text) + 1);
    return property_set(AT_LOG_TCINDEX_PROPERTY, next) == 0 ? ERRNO_SUCCESS : ERRNO_FAILED;
}

int AtQmiClient::saveAtLogStatus(bool start, const char* tcName) {
    if (property_set(AT_LOG_STATUS_PROPERTY, start ? "1" : "0") != 0) {
        LOG_E("%s: failed to %s property %s", __func__, start ? "enable" : "disable",
              AT_LOG_STATUS_PROPERTY);
        return ERRNO_FAILED;
    }
    if (start && property_set(AT_LOG_TCNAME_PROPERTY, tcName) != 0) {
        LOG_E("%s: failed to update property %s to %s", __func__, AT_LOG_TCNAME_PROPERTY, tcName);
        return ERRNO_FAILED;
    }
    return setFirstIndex(__func__);
}

// ---- AT+LOG commands ----------------------------------------------------------------------------

int AtQmiClient::processAtCommand(const void* data, size_t len) {
    LOG_I("%s: internal request", __func__);
    auto record = makeRecord<AtCommandParam>(data, len);
    const int result =
            record ? postRecord(PostTexts::WITHOUT_SERIAL, __func__, AtMessage::PROCESS_AT_COMMAND,
                                INTERNAL_SERIAL, std::move(record))
                   : refusePost(PostTexts::WITHOUT_SERIAL, __func__, AtMessage::PROCESS_AT_COMMAND);
    if (result != ERRNO_SUCCESS) {
        freeTokens(data, len);
    }
    return result;
}

int AtQmiClient::handleProcessAtCommandMessage(const MessagePtr& msg) {
    const auto* request = takeRecord<AtCommandParam>(__func__, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    if (request->data == nullptr || request->length != sizeof(modem_atlog_cmd_type)) {
        LOG_E("%s: invalid AT command data input, can't process", __func__);
        return ERRNO_INVALID_PARAM;
    }
    modem_atlog_cmd_type command;
    memcpy(&command, request->data.get(), sizeof(command));
    const TokenStrings owned(command);
    int result = parseAtCommand(command);
    if (result != ERRNO_SUCCESS) {
        LOG_E("%s: failed to parse AT command info", __func__);
    } else {
        result = processParsedCommand(__func__);
    }
    if (result != ERRNO_SUCCESS) {
        LOG_E("%s: failed to process AT log command, send error response to modem", __func__);
        result = sendLogControlErrorResp();
    }
    mName.clear();
    mTokens.clear();
    return result;
}

Errno AtQmiClient::parseAtCommand(const modem_atlog_cmd_type& command) {
    LOG_I("%s: parsing", __func__);
    // Before anything can fail: the error response needs the handle of this command.
    mHandle = command.handle;
    mOpCode = command.op_code;
    try {
        mName.assign(command.name, strnlen(command.name, sizeof(command.name)));
        mTokens.resize(TokenStrings::count(command));
        for (size_t i = 0; i < mTokens.size(); ++i) {
            mTokens[i] = command.tokens[i] != nullptr ? command.tokens[i] : "";
        }
    } catch (const std::bad_alloc&) {
        mTokens.clear();
        LOG_E("%s: failed to calloc tokens for AT command", __func__);
        return ERRNO_NO_MEMORY;
    }
    LOG_I("%s: parsed handle = 0x%lx, op code = 0x%lx, name = %s, token number = %hu", __func__,
          static_cast<unsigned long>(mHandle), static_cast<unsigned long>(mOpCode), mName.c_str(),
          command.token_count);
    for (size_t i = 0; i < mTokens.size(); ++i) {
        LOG_I("%s: parsed token[%zu] = %s", __func__, i, mTokens[i].c_str());
    }
    return ERRNO_SUCCESS;
}

int AtQmiClient::processParsedCommand(const char* func) {
    if (mOpCode != MODEM_ATLOG_OP_CODE || strcasecmp(mName.c_str(), sAtLogCommandName) != 0) {
        LOG_E("%s: not AT+LOG command, can't process", func);
        return ERRNO_INVALID_PARAM;
    }
    mProcessing = true;
    LogCommand command;
    if (!readLogCommand(func, command)) {
        return ERRNO_INVALID_PARAM;
    }
    saveAtLogStatus(command.logMode == LOG_MODE_START, command.tcName.c_str());
    LOG_I("%s: AT log status saved, report AT log control info to upper layer", func);
    return mIndicationProxy->indicateAtLogControlInfo(command.logMode, command.testResult,
                                                      command.tcName);
}

bool AtQmiClient::readLogCommand(const char* func, LogCommand& command) {
    if (mTokens.empty()) {
        LOG_E("%s: invalid token number for AT command, can't process", func);
        return false;
    }
    const auto nameOr = [this](const char* name) {
        return mTokens.size() > 1 ? std::move(mTokens[1]) : std::string(name);
    };
    if (mTokens[0] == AT_COMMAND_LOG_MODE_START_STRING) {
        LOG_I("%s: log start", func);
        command = {LOG_MODE_START, TEST_NONE, nameOr(AT_COMMAND_LOG_TC_NAME_TS_START)};
        return true;
    }
    if (mTokens[0] == AT_COMMAND_LOG_MODE_STOP_STRING) {
        LOG_I("%s: log stop", func);
        command = {LOG_MODE_STOP, readTestResult(func), nameOr(AT_COMMAND_LOG_TC_NAME_TS_END)};
        return true;
    }
    LOG_E("%s: unrecognized token[0]: %s, can't set test result", func, mTokens[0].c_str());
    return false;
}

uint8_t AtQmiClient::readTestResult(const char* func) const {
    if (mTokens.size() < 3) {
        LOG_I("%s: no token[2], unknow test result", func);
        return TEST_NONE;
    }
    if (mTokens[2] == AT_COMMAND_LOG_TEST_RESULT_SUCCESS_STRING) {
        return TEST_SUCCESS;
    }
    if (mTokens[2] == AT_COMMAND_LOG_TEST_RESULT_FAILURE_STRING) {
        return TEST_FAILURE;
    }
    LOG_E("%s: unrecognized token[2]: %s, error test result", func, mTokens[2].c_str());
    return TEST_UNRECOGNISED;
}

// ---- Responses to the modem ---------------------------------------------------------------------

int AtQmiClient::sendLogControlErrorResp() {
    return sendToModem(__func__, RESPONSE_ERROR, "log control error response");
}

int AtQmiClient::sendLogControlResp(int serial) {
    LOG_I("%s: serial = %d", __func__, serial);
    return post<SerialVoidParam>(PostTexts::BY_NAME, __func__, AtMessage::SEND_LOG_CONTROL_RESP,
                                 serial);
}

int AtQmiClient::handleSendLogControlRespMessage(const MessagePtr& msg) {
    const auto* request = takeRecord<SerialParam>(__func__, msg);
    if (request == nullptr) {
        return ERRNO_INVALID_PARAM;
    }
    return answer(&Proxy::respondSendLogControlResp, request->serial, confirmLogCommand(__func__));
}

int AtQmiClient::confirmLogCommand(const char* func) {
    if (!mProcessing) {
        LOG_E("%s: currently not processing AT log command, can't send response to modem", func);
        return ERRNO_NOT_CONNECTED;
    }
    return sendToModem(func, RESPONSE_SUCCESS, "log control response to modem");
}

int AtQmiClient::sendToModem(const char* func, uint32_t result, const char* what) {
    const Errno err = checkConnected(func);
    if (err != ERRNO_SUCCESS) {
        return err;
    }
    const modem_atlog_resp_type response{mHandle, result, RESPONSE_KIND, 0};
    const bool sent = modem_atlog_send_resp(&response) == 0;
    if (sent) {
        LOG_I("%s: successfully sent %s", func, what);
    } else {
        LOG_E("%s: failed to send %s", func, what);
    }
    mProcessing = false;
    return sent ? ERRNO_SUCCESS : ERRNO_FAILED;
}
