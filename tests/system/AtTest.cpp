#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <fstream>

#include "platform/runtime/RuntimeDir.h"
#include "tests/system/System.h"

namespace {

using AtLog = SystemTest;

/** An operator's terminal at the modem's AT port, without echo, once the command is registered. */
class Terminal {
public:
    explicit Terminal(const Host& host) {
        EXPECT_TRUE(host.awaitSim("state at.registered", "+LOG"));
        mFd = open(runtime::atPort("0").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
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
        pollfd input{mFd, POLLIN, 0};
        std::string shown;
        for (char c = 0; shown.size() < text.size(); shown += c) {
            if (poll(&input, 1, static_cast<int>(PATIENCE.count())) != 1 || read(mFd, &c, 1) != 1) {
                return false;
            }
        }
        return shown == text;
    }

private:
    int mFd = -1;
};

constexpr char OK[] = "\r\nOK\r\n";
constexpr char ERROR[] = "\r\nERROR\r\n";

std::string property(const std::string& name) {
    std::ifstream file(runtime::stateDirectory() + "/properties/persist.service.atlog." + name);
    std::string value;
    std::getline(file, value);
    return value;
}

}  // namespace

TEST_F(AtLog, GoesFromTheTerminalToAClientAndBack) {
    const Host host;
    const Terminal terminal(host);
    terminal.type("AT+LOG=1,tc6");
    EXPECT_TRUE(terminal.shows(ERROR)) << "no client";
    Client client;
    struct {
        const char* typed;
        const char* event;  ///< null: none, and the answer comes at once
        const char* shown;
        const char* properties;
    } const rows[] = {
            {"AT+OTHER=1", nullptr, ERROR, "1 tc6"},
            {"AT+LOG=1,tc7", "logMode=1 testResult=3 tcName=tc7", OK, "1 tc7"},
            {"at+log = 1", "logMode=1 testResult=3 tcName=ts_start", OK, "1 ts_start"},
            {"AT+LOG=0,tc7,0", "logMode=0 testResult=0 tcName=tc7", OK, "0 ts_start"},
            {"AT+LOG=0,tc7,x", "logMode=0 testResult=2 tcName=tc7", OK, "0 ts_start"},
            {"AT+LOG=2,tc7", nullptr, ERROR, "0 ts_start"},
            {"AT+LOG", nullptr, ERROR, "0 ts_start"},
    };
    for (const auto& row : rows) {
        terminal.type(row.typed);
        if (row.event != nullptr) {
            EXPECT_EQ("atLogControlInfoInd " + std::string(row.event), client.event());
            EXPECT_EQ("error=0", client.call("sendLogControlResp"));
        }
        EXPECT_TRUE(terminal.shows(row.shown)) << row.typed;
        EXPECT_EQ("error=1", client.call("sendLogControlResp")) << row.typed << ": none is open";
        EXPECT_EQ(row.properties, property("status") + " " + property("tcname")) << row.typed;
    }
    EXPECT_FALSE(client.hasEvents());
}
