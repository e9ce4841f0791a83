#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "Desk.h"
#include "platform/libmodemapi_vendor/src/AtLine.h"
#include "platform/runtime/RuntimeDir.h"

using sim::AtRequest;

TEST(AtLine, EditsAndEndsLines) {
    struct Row {
        const char* typed;
        const char* shown;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
            {"AT\r", "AT\r", {"AT"}},
            {"AT\r\nATE\r\n", "AT\rATE\r", {"AT", "ATE"}},
            {"A\nT\n", "A\nT\n", {"A", "T"}},
            {"\r\n\r", "\r\r", {"", ""}},
            {"AX\bT\r", "AX\b \bT\r", {"AT"}},
            {"\x7f\x7f"
             "A\x7f\x7f"
             "B\r",
             "A\b \bB\r",
             {"B"}},
            {"A\x01\x1b"
             "T\xff\r",
             "AT\xff\r",
             {"AT\xff"}},
    };
    for (const Row& row : rows) {
        sim::AtLine line;
        std::string shown;
        std::vector<std::string> lines;
        for (const char* c = row.typed; *c != '\0'; ++c) {
            if (auto ended = line.feed(*c, shown)) {
                lines.push_back(*ended);
            }
        }
        EXPECT_EQ(row.shown, shown);
        EXPECT_EQ(row.lines, lines);
    }
}

TEST(AtLine, TellsRequestsApart) {
    struct Row {
        std::string line;
        AtRequest request;
    };
    const std::string sixty = "AT+LOG=1" + std::string(59, ',');
    const Row rows[] = {
            {"", {AtRequest::NOTHING}},
            {"at", {AtRequest::OK}},
            {"ATe0", {AtRequest::ECHO_OFF}},
            {"ATE1", {AtRequest::ECHO_ON}},
            {"ATZ", {AtRequest::ERROR}},
            {"BAT", {AtRequest::ERROR}},
            {"AT+LOG=1,tc7", {AtRequest::EXTENDED, "+LOG", {"1", "tc7"}}},
            {"at+log = 1 , tc7 ", {AtRequest::EXTENDED, "+log", {"1", "tc7"}}},
            {"AT+LOG=1,\"my, case\"", {AtRequest::EXTENDED, "+LOG", {"1", "my, case"}}},
            {"AT+LOG=0,,\"\"", {AtRequest::EXTENDED, "+LOG", {"0", "", ""}}},
            {"AT+LOG", {AtRequest::EXTENDED, "+LOG"}},
            {"AT+LOG=", {AtRequest::EXTENDED, "+LOG"}},
            {"AT+LOG?", {AtRequest::ERROR}},
            {"AT+LOG=?", {AtRequest::ERROR}},
            {"AT+LOG=1,\"open", {AtRequest::ERROR}},
            {sixty + ",", {AtRequest::ERROR}},
            {"AT" + std::string(sim::AtLine::LENGTH_MAX, ' '), {AtRequest::ERROR}},
    };
    for (const Row& row : rows) {
        const AtRequest request = sim::parseAtLine(row.line);
        EXPECT_EQ(row.request.kind, request.kind) << row.line;
        EXPECT_EQ(row.request.name, request.name) << row.line;
        EXPECT_EQ(row.request.tokens, request.tokens) << row.line;
    }
    EXPECT_EQ(60U, sim::parseAtLine(sixty).tokens.size());
}

/** An operator's terminal at the AT port. */
class AtPortTest : public Desk {
protected:
    void SetUp() override {
        Desk::SetUp();
        mFd = open(runtime::atPort("0").c_str(), O_RDWR | O_NOCTTY);
        ASSERT_GE(mFd, 0);
        type("ATE0\r", "ATE0\r\r\nOK\r\n");
    }
    void TearDown() override {
        type("ATE1\r", "\r\nOK\r\n");
        close(mFd);
        Desk::TearDown();
    }

    void type(const std::string& text, const std::string& answer) {
        ASSERT_EQ(static_cast<ssize_t>(text.size()), write(mFd, text.data(), text.size()));
        expect(answer);
    }
    void expect(const std::string& answer) {
        std::string shown;
        pollfd input{mFd, POLLIN, 0};
        char c = 0;
        while (shown.size() < answer.size() && poll(&input, 1, 20000) == 1 &&
               read(mFd, &c, 1) == 1) {
            shown += c;
        }
        EXPECT_EQ(answer, shown);
    }

    /** The next command that reached the plug-in's side, its strings freed. */
    modem_atlog_cmd_type takeCommand(std::vector<std::string>& tokens) {
        const Event event = events.take();
        EXPECT_EQ(MODEM_API_EVENT_AT_COMMAND, event.number);
        modem_atlog_cmd_type command{};
        memcpy(&command, event.data.data(), std::min(event.data.size(), sizeof command));
        for (char* token : command.tokens) {
            tokens.emplace_back(token != nullptr ? token : "-");
            free(token);
        }
        return command;
    }
    uint64_t takeHandle() {
        std::vector<std::string> tokens;
        return takeCommand(tokens).handle;
    }
    static int respond(uint64_t handle, uint32_t result) {
        const modem_atlog_resp_type response{handle, result, 3, 0};
        return modem_atlog_send_resp(&response);
    }

    int mFd = -1;
};

TEST_F(AtPortTest, HoldsARegisteredCommandUntilItsResponse) {
    type("AT+LOG=1,\"tc 7\"\r", "");
    std::vector<std::string> tokens;
    const auto command = takeCommand(tokens);
    EXPECT_STREQ("+LOG", command.name);
    EXPECT_EQ(11U, command.op_code);
    EXPECT_EQ(2, command.token_count);
    EXPECT_EQ("1", tokens[0]);
    EXPECT_EQ("tc 7", tokens[1]);
    EXPECT_EQ("-", tokens[2]);
    type("AT\rat+log=0\r", "");  // waits for its turn
    EXPECT_NE(0, respond(command.handle + 1, 1));
    EXPECT_EQ(0, respond(command.handle, 1));
    expect("\r\nOK\r\n\r\nOK\r\n");
    EXPECT_NE(0, respond(command.handle, 1));
    EXPECT_EQ(0, respond(takeHandle(), 0));
    expect("\r\nERROR\r\n");
    type("AT+OTHER\r", "\r\nERROR\r\n");
}

TEST_F(AtPortTest, EndsAHeldCommandWithAnErrorWhenNobodyWill) {
    run("set at-timeout-ms 1");
    type("AT+LOG=1\r", "\r\nERROR\r\n");
    EXPECT_NE(0, respond(takeHandle(), 1));
    run("set at-timeout-ms 60000");
    type("AT+LOG=1\r", "");
    const uint64_t handle = takeHandle();
    run("disconnect at");
    expect("\r\nERROR\r\n");
    EXPECT_EQ(serviceEvent(false, MODEM_API_QMI_SERVICE_AT), events.take());
    type("AT+LOG=1\r", "\r\nERROR\r\n");  // no longer registered
    run("at +LOG 11 1 1");                // and nobody there: the strings are not leaked
    run("connect at");
    EXPECT_EQ(serviceEvent(true, MODEM_API_QMI_SERVICE_AT), events.take());
    EXPECT_NE(0, respond(handle, 1));
}

TEST_F(AtPortTest, RaisesCommandsThatNoTerminalCouldType) {
    EXPECT_THAT(run("at +a-name-of-22-or-more-letters 12 65535 1 - \"\""),
                testing::StartsWith("handle "));
    std::vector<std::string> tokens;
    const auto command = takeCommand(tokens);
    EXPECT_EQ(12U, command.op_code);
    EXPECT_EQ("+a-name-of-22-or-more-", std::string(command.name, sizeof command.name));
    EXPECT_EQ(65535, command.token_count);
    EXPECT_EQ("1", tokens[0]);
    EXPECT_EQ("-", tokens[1]);
    EXPECT_EQ("", tokens[2]);
    EXPECT_EQ(0, respond(command.handle, 1));
}
