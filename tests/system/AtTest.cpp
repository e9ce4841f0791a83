#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <fstream>

#include "platform/runtime/RuntimeDir.h"
#include "tests/system/Client.h"
#include "tests/system/Desk.h"

namespace {

using AtLog = SystemTest;

/** An operator's terminal at the modem's AT port, without echo. */
class Terminal {
public:
    Terminal() : mFd(open(runtime::atPort("0").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        type("ATE0");
        EXPECT_TRUE(shows("ATE0\r\r\nOK\r\n"));
    }
    ~Terminal() { close(mFd); }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void type(const std::string& line) const {
        EXPECT_EQ(static_cast<ssize_t>(line.size() + 1),
                  write(mFd, (line + '\r').data(), line.size() + 1));
    }
    [[nodiscard]] bool shows(const std::string& text) const {
        const std::chrono::milliseconds patience(PATIENCE);
        pollfd input{mFd, POLLIN, 0};
        std::string shown;
        char c = 0;
        while (shown.size() < text.size() &&
               poll(&input, 1, static_cast<int>(patience.count())) == 1 && read(mFd, &c, 1) == 1) {
            shown += c;
        }
        return shown == text;
    }

private:
    const int mFd;
};

constexpr char OK[] = "\r\nOK\r\n";
constexpr char ERROR[] = "\r\nERROR\r\n";

std::string property(const std::string& name) {
    std::ifstream file(runtime::stateDirectory() + "/properties/persist.service.atlog." + name);
    std::string value;
    std::getline(file, value);
    return value;
}

std::string logEvent(const std::string& values) {
    return "atLogControlInfoInd {\"type\":0," + values + "}";
}

}  // namespace

TEST_F(AtLog, GoesFromTheTerminalToAClientAndBack) {
    const Host host;
    ASSERT_TRUE(host.awaitSim("state at.registered", "+LOG"));
    const Terminal terminal;
    terminal.type("AT+LOG=1,tc6");
    EXPECT_TRUE(terminal.shows(ERROR)) << "no client";
    Client client;
    struct {
        const char* typed;
        const char* event;  ///< null: none, the answer comes at once
        const char* shown;
        const char* status;
        const char* tcname;
    } const rows[] = {
            {"AT", nullptr, OK, "1", "tc6"},
            {"AT+OTHER=1", nullptr, ERROR, "1", "tc6"},
            {"AT+LOG=1,tc7", R"("logMode":1,"testResult":3,"tcName":"tc7")", OK, "1", "tc7"},
            {"at+log = 1", R"("logMode":1,"testResult":3,"tcName":"ts_start")", OK, "1",
             "ts_start"},
            {"AT+LOG=0,tc7,0", R"("logMode":0,"testResult":0,"tcName":"tc7")", OK, "0", "ts_start"},
            {"AT+LOG=0,\"t,c\",1", R"("logMode":0,"testResult":1,"tcName":"t,c")", OK, "0",
             "ts_start"},
            {"AT+LOG=0,tc7,x", R"("logMode":0,"testResult":2,"tcName":"tc7")", OK, "0", "ts_start"},
            {"AT+LOG=0", R"("logMode":0,"testResult":3,"tcName":"ts_end")", OK, "0", "ts_start"},
            {"AT+LOG=2,tc7", nullptr, ERROR, "0", "ts_start"},
            {"AT+LOG", nullptr, ERROR, "0", "ts_start"},
    };
    for (const auto& row : rows) {
        terminal.type(row.typed);
        if (row.event != nullptr) {
            EXPECT_EQ(logEvent(row.event), client.event());
            EXPECT_EQ("0 {}", client.call("sendLogControlResp"));
        }
        EXPECT_TRUE(terminal.shows(row.shown)) << row.typed;
        EXPECT_EQ("1 {}", client.call("sendLogControlResp")) << row.typed << ": none is open";
        EXPECT_EQ(row.status, property("status")) << row.typed;
        EXPECT_EQ(row.tcname, property("tcname")) << row.typed;
    }
    EXPECT_FALSE(client.hasEvents());
}

TEST_F(AtLog, IsConfirmedByAWatcher) {
    const Host host;
    ASSERT_TRUE(host.awaitSim("state at.registered", "+LOG"));
    Process watcher({MODEMCTL, "watch", "--confirm-log", "--count", "1"});
    ASSERT_TRUE(watcher.prints("watching instance 0"));
    const Terminal terminal;
    terminal.type("AT+LOG=1,tc7");
    EXPECT_TRUE(terminal.shows(OK));
    EXPECT_EQ(0, watcher.wait());
    EXPECT_TRUE(watcher.prints("atLogControlInfoInd logMode=1 testResult=3 tcName=tc7\n"));
    EXPECT_TRUE(watcher.prints(" error=0\n"));
}

/** A log that was left running is announced once a start, when its registration fails. */
TEST_F(AtLog, IsAnnouncedAgainAfterARestart) {
    {
        const Host host;
        ASSERT_TRUE(host.awaitSim("state at.registered", "+LOG"));
        Client client;
        const Terminal terminal;
        terminal.type("AT+LOG=1,tc7");
        client.event();
        EXPECT_EQ("0 {}", client.call("sendLogControlResp"));
        EXPECT_TRUE(terminal.shows(OK));
    }
    for (const char* name : {"tc7_1", "tc7_2"}) {
        const Host host(0, Host::prepared(0, {}));
        ASSERT_TRUE(host.awaitSim("state at.registered", "+LOG"));
        Client client;
        host.sim("fail modem_atlog_cmd_reg");
        for (int i = 0; i < 2; ++i) {
            host.sim("disconnect at");
            host.sim("connect at");
            EXPECT_TRUE(host.awaitCalls("modem_atlog_cmd_reg", 2 + i));
        }
        EXPECT_EQ(logEvent(R"("logMode":1,"testResult":3,"tcName":")" + std::string(name) + '"'),
                  client.event());
        EXPECT_EQ("1", property("status"));
    }
    EXPECT_EQ("3", property("tcindex"));
}
