// The AT command "+LOG": from the modem to the upper layer and back, and the log that survives.

#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <sstream>
#include <thread>

#include "clients/AtQmiClient.h"
#include "tests/support/Allocations.h"
#include "tests/support/Service.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

namespace {

using Tokens = std::vector<const char*>;

constexpr int AT = MODEM_API_QMI_SERVICE_AT;
constexpr const char* STATUS = AtQmiClient::AT_LOG_STATUS_PROPERTY;
constexpr const char* TC_NAME = AtQmiClient::AT_LOG_TCNAME_PROPERTY;
constexpr const char* INDEX = AtQmiClient::AT_LOG_TCINDEX_PROPERTY;

std::string get(const char* key) {
    char value[PROPERTY_VALUE_MAX];
    property_get(key, value, "");
    return value;
}

void setLog(const char* status, const std::string& name, const char* index) {
    ASSERT_EQ(property_set(STATUS, status), 0);
    ASSERT_EQ(property_set(TC_NAME, name.c_str()), 0);
    ASSERT_EQ(property_set(INDEX, index), 0);
}

/** Makes a property unwritable until the folder in its place is removed. */
fs::path block(const char* key) {
    const fs::path path = getenv("OX_RUNTIME_DIR") + std::string("/state/properties/") + key;
    fs::remove(path);
    fs::create_directories(path);
    return path;
}

/** A command with tokens of its own, which whoever takes the event has to free. */
modem_atlog_cmd_type commandOf(const Tokens& tokens) {
    const auto count = static_cast<uint16_t>(tokens.size());
    modem_atlog_cmd_type command{42, MODEM_ATLOG_OP_CODE, "+LOG", count, {}};
    for (size_t i = 0; i < tokens.size(); ++i) {
        command.tokens[i] = tokens[i] != nullptr ? strdup(tokens[i]) : nullptr;
    }
    return command;
}

const std::string H = " handleProcessAtCommandMessage: ";

/** Commands as they are logged; what becomes of them is followed by the generated schedules. */
class AtCommand : public testing::Test {
protected:
    Service mService;

    Lines raiseData(const void* data, size_t size) {
        mService.forget();
        mService.modem.raise(MODEM_API_EVENT_AT_COMMAND, data, size);
        Service::runAll();
        return mService.log.take();
    }
    Lines raise(const Tokens& tokens) {
        const modem_atlog_cmd_type command = commandOf(tokens);
        return raiseData(&command, sizeof(command));
    }

    /** The upper layer confirms: what is logged. */
    void confirm(const std::string& line, int err) {
        mService.call("sendLogControlResp", 7);
        Service::runAll();
        const Lines log = mService.log.take();
        EXPECT_EQ(log[log.size() - 3],
                  line.substr(0, 2) + "handleSendLogControlRespMessage: " + line.substr(2));
        EXPECT_EQ(log[log.size() - 2],
                  "I respondSendLogControlResp: serial = 7, err = " + std::to_string(err));
    }
};

}  // namespace

TEST_F(AtCommand, IsToldAsItIsRead) {
    const std::string other = "E not AT+LOG command, can't process";
    const std::string refused = "failed to process AT log command, send error response to modem";
    const std::string saved = "AT log status saved, report AT log control info to upper layer";
    const std::string name22 = "+LOGLOGLOGLOGLOGLOGLOG";
    Tokens sixty(60, "t");
    sixty[0] = "1";
    const struct {
        Tokens tokens;
        std::string line;
        uint64_t opCode = 11;
        std::string name = "+LOG";
        int count = -1;  // reported, when not the tokens' own
    } rows[] = {
            {{"1", "tc7"}, "I log start"},
            {{"0", "tc7", "0"}, "I log stop"},
            {{"0", "tc7"}, "I no token[2], unknow test result"},
            {{"0", "tc7", "x"}, "E unrecognized token[2]: x, error test result"},
            {{"0", "tc7", nullptr}, "E unrecognized token[2]: , error test result"},
            {{"10"}, "E unrecognized token[0]: 10, can't set test result"},
            {{}, "E invalid token number for AT command, can't process"},
            {{"1"}, other, 11 + (1ULL << 32)},
            {{"1"}, other, 11, name22},
            {sixty, "I log start", 11, "+LOG", 65535},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows);
        modem_atlog_cmd_type command = commandOf(row.tokens);
        command.op_code = row.opCode;
        (row.name + std::string(22, '\0')).copy(command.name, sizeof(command.name));
        command.token_count = row.count < 0 ? row.tokens.size() : row.count;
        const Lines log = raiseData(&command, sizeof(command));
        std::ostringstream parsed;
        parsed << std::hex << "I parseAtCommand: parsed handle = 0x2a, op code = 0x" << row.opCode
               << ", name = " << row.name << std::dec << ", token number = " << command.token_count;
        const std::string token = row.tokens.empty() ? "" : row.tokens[0];
        EXPECT_EQ(log[4], "I parseAtCommand: parsing");
        EXPECT_EQ(log[5], parsed.str());
        EXPECT_TRUE(token.empty() || log[6] == "I parseAtCommand: parsed token[0] = " + token);
        EXPECT_THAT(log, Contains(row.line[0] + H + row.line.substr(2)));
        const bool isRefused = mService.client.take().empty();
        EXPECT_THAT(log, Contains(isRefused ? "E" + H + refused : "I" + H + saved));
    }
}

TEST_F(AtCommand, TellsWhatTheModemWasTold) {
    const std::string notConnected = "AT QMI service not connected";
    const std::string error = "sendLogControlErrorResp: ";
    EXPECT_EQ(raise({"x"}).back(), "I " + error + "successfully sent log control error response");
    confirm("E currently not processing AT log command, can't send response to modem", 4);
    raise({"1"});
    EXPECT_EQ(raiseData(nullptr, 0).back(),
              "E" + H + "invalid AT command data input, can't process");
    confirm("I successfully sent log control response to modem", 0);
    mService.modem.returns("modem_atlog_send_resp", {9});
    EXPECT_EQ(raise({"x"}).back(), "E " + error + "failed to send log control error response");
    raise({"1"});
    confirm("E failed to send log control response to modem", 1);
    raise({"1"});
    mService.disconnect(AT);
    confirm("E " + notConnected, 4);
    EXPECT_EQ(raise({"x"}).back(), "E " + error + notConnected);
    desk::setQueueLimit(0);  // its tokens are freed all the same
    EXPECT_EQ(raise({"1", "tc7"}).back(), "E processAtCommand: failed to dispatch msg");
}

TEST(AtLogStatus, IsRetrievedWithItsIndex) {
    const std::string n34(34, 'n');
    const std::string on = "I retrieveAtLogStatus: log on = true";
    const std::string off = "I retrieveAtLogStatus: log on = false";
    const std::string cut = "W retrieveAtLogStatus: tcName too long, should be truncated";
    const std::string tooLong =
            "E retrieveAtLogStatus: tcIndex string too long, should not append to tcName";
    const std::string invalid = "E retrieveAtLogStatus: invalid param input";
    // clang-format off
    const struct {
        const char* status;
        std::string name;
        const char* index;
        Lines lines;
        std::string retrieved, next;
        int result = 0;
        size_t size = 40;
    } rows[] = {
        {"", "abc", "1", {off}, "", "1"},        {"true", "abc", "1", {off}, "", "1"},
        {"1x", "abc", "1", {on}, "abc_1", "2"},  {"1", "abc", "", {on}, "abc_", "1"},
        {"1", "", "9", {on}, "_9", "10"},        {"1", "abc", "7xy", {on}, "abc_7xy", "8"},
        {"1", "abc", "99999", {on}, "abc_99999", "100000"},
        {"1", "abc", "100000", {on, tooLong}, "abc_", "100000", 1},
        {"1", n34.substr(1), "1", {on}, n34.substr(1) + "_1", "2"},
        {"1", n34 + "x", "2", {on, cut}, n34 + "_2", "3"},
        {"1", std::string(91, 'n'), "100000", {on, cut, tooLong}, n34 + "_", "100000", 1},
        {"1", n34, "12345", {on, cut}, n34 + "_1234", "12346"},  // all that 40 bytes hold
        {"1", "abc", "1", {on, cut}, "_1", "2", 0, 6}, {"1", "abc", "1", {invalid}, "", "1", 3, 5},
        {"1", "abc", "12345", {on, cut}, "_1234", "12346", 0, 6},
    };
    // clang-format on
    LogCapture log;
    bool isOn = false;
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows);
        setLog(row.status, row.name, row.index);
        const std::unique_ptr<char[]> name(new char[row.size]());
        isOn = false;
        EXPECT_EQ(AtQmiClient::retrieveAtLogStatus(&isOn, name.get(), row.size), row.result);
        EXPECT_EQ(log.take(), row.lines);
        EXPECT_EQ(name.get(), row.retrieved);
        EXPECT_EQ(isOn, !row.retrieved.empty());
        EXPECT_EQ(get(INDEX), row.next);
    }
    char name[40];
    EXPECT_EQ(AtQmiClient::retrieveAtLogStatus(nullptr, name, sizeof(name)), 3);
    EXPECT_EQ(AtQmiClient::retrieveAtLogStatus(&isOn, nullptr, sizeof(name)), 3);
    const fs::path blocked = block(INDEX);
    EXPECT_EQ(AtQmiClient::retrieveAtLogStatus(&isOn, name, sizeof(name)), 1);
    EXPECT_STREQ(name, "abc_");
    fs::remove(blocked);
}

// What is written, and what no more after a failure, the generated schedules follow.
TEST(AtLogStatus, TellsWhatCouldNotBeSaved) {
    const struct {
        bool start;
        const char* blocked;
        std::string line;
    } rows[] = {
            {true, STATUS, "failed to enable property "},
            {false, STATUS, "failed to disable property "},
            {true, TC_NAME, "failed to update property "},
            {false, INDEX, "failed to set property "},
    };
    LogCapture log;
    EXPECT_EQ(AtQmiClient::saveAtLogStatus(true, "tc7"), 0);
    for (const auto& row : rows) {
        const fs::path blocked = block(row.blocked);
        EXPECT_EQ(AtQmiClient::saveAtLogStatus(row.start, "tc7"), 1);
        EXPECT_THAT(log.take(), ElementsAre("E saveAtLogStatus: " + row.line + row.blocked +
                                            (row.blocked == TC_NAME ? " to tc7" : "")));
        fs::remove(blocked);
    }
}

class AtReport : public testing::Test {
protected:
    const std::string REPORT = "I reportAtLogControlInfo: ";
    Service service;
    std::shared_ptr<AtQmiClient> client;

    /** The service connects, and the modem answers the registration of the command so. */
    void connect(int result) {
        service.modem.returns("modem_atlog_cmd_reg", {result});
        client->setConnectionStatus(true);
        Service::runAll();
    }

    AtReport() { makeClient(); }

    /** A client that reports at once. */
    void makeClient() {
        const auto indications = std::make_shared<ModemIndicationProxy>();
        indications->update(service.client.indications);
        client = std::make_shared<AtQmiClient>(nullptr, indications, std::chrono::milliseconds(0));
    }
};

TEST_F(AtReport, AnnouncesTheLogOncePerClientUnderItsNextIndex) {
    const std::string n34(34, 'n');
    setLog("1", n34 + "x", "12345");
    for (const std::string& name : {n34 + "_1234", n34 + "_1234"}) {  // all that 40 bytes hold
        makeClient();
        connect(1);
        ASSERT_TRUE(service.log.waitFor("indicateAtLogControlInfo: succeed"));
        EXPECT_THAT(service.client.take(),
                    ElementsAre(R"({"method":"atLogControlInfoInd","type":0,"logMode":1,)"
                                R"("testResult":3,"tcName":")" +
                                name + "\"}"));
        const std::string at = "report AT log control info at 1st time connected to AT QMI service";
        EXPECT_THAT(service.log.take(), Contains(REPORT + at));
        connect(1);
        EXPECT_EQ(service.modem.calls(), Lines(2, "modem_atlog_cmd_reg(+LOG)"));
        service.forget();
    }
    EXPECT_EQ(get(INDEX), "12347");
}

TEST_F(AtReport, IsLeftOutWhenThereIsNoNeed) {
    setLog("1", "tc7", "1");
    connect(0);
    EXPECT_EQ(service.log.take().back(),
              "I handleRegisterAtCommandIndMessage: successfully registered AT command indication");
    setLog("0", "tc7", "1");
    connect(1);
    ASSERT_TRUE(service.log.waitFor(REPORT + "no need to report AT log contorl info at 1st time "
                                             "connected to AT QMI service"));
}

TEST_F(AtReport, TouchesNoClientThatIsGone) {
    setLog("1", "tc7", "1");
    std::promise<void> isGone;
    const auto gone = isGone.get_future().share();
    service.log.onLine([gone](const std::string& line) {
        if (line == "I retrieveAtLogStatus: log on = true") {
            gone.wait();
        }
    });
    connect(1);
    const std::weak_ptr<AtQmiClient> weak = client;
    client.reset();
    EXPECT_TRUE(weak.expired()) << "the thread that is about to report does not keep it";
    isGone.set_value();
    while (get(INDEX) != "2") {  // the last that the thread does before it looks for the client
        std::this_thread::yield();
    }
    EXPECT_THAT(service.client.take(), IsEmpty());
    EXPECT_THAT(service.log.take(), Not(Contains(HasSubstr(REPORT))));
}
