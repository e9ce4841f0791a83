#include "platform/libmodemapi_vendor/src/TextPort.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Desk.h"
#include "platform/runtime/RuntimeDir.h"

using testing::HasSubstr;

namespace {

class Peer {
public:
    explicit Peer(const std::string& path) {
        sockaddr_un address{AF_UNIX, {}};
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, connect(mFd, reinterpret_cast<sockaddr*>(&address), sizeof address));
    }
    ~Peer() { close(mFd); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    bool say(const std::string& text, int flags = 0) {
        return send(mFd, text.data(), text.size(), MSG_NOSIGNAL | flags) ==
               static_cast<ssize_t>(text.size());
    }
    /** What comes until `end`, or until the port hangs up. */
    std::string hear(const std::string& end) {
        std::string text;
        char c = 0;
        while (text.size() < end.size() || text.substr(text.size() - end.size()) != end) {
            if (recv(mFd, &c, 1, 0) != 1) {
                return text + "<end>";
            }
            text += c;
        }
        return text;
    }

private:
    const int mFd = socket(AF_UNIX, SOCK_STREAM, 0);
};

}  // namespace

TEST_F(Desk, WrongCommandsSayWhatAndWhere) {
    const std::pair<const char*, const char*> rows[] = {
            {"sing", "error: no command 'sing'; 'help' lists them"},
            {"set", "error: usage: set KEY VALUE..."},
            {"rrc 1 2 3", "error: usage: rrc A B C D"},
            {"help me", "error: usage: help "},
            {"rrc 1 2 x 4", "error: rrc: argument 3 'x' is not a number from -2147483648"},
            {"connect 256", "error: connect: argument 1 '256' is not a number from 0 to 255"},
            {"set sarstate 1", "error: set: argument 1 'sarstate' is no plain value"},
            {"set latency-ms -1", "argument 2 '-1' is not a number from 0"},
            {"event 15 0g", "error: event: argument 2 '0g' is not pairs of hexadecimal digits"},
            {"event 15 012", "is not pairs of hexadecimal digits"},
            {"profiles 0102030405060708 01", "profiles: argument 2 '01' is not 16 hexadecimal"},
            {"fail modem_nothing", "error: the modem API has no function 'modem_nothing'"},
            {"fail malloc", "error: the modem API has no function 'malloc'"},
            {"delay modem_get_build_id 9-5", "argument 2 '9-5' is not a number from 9"},
            {"set build-id \"a", "error: a quote is not closed"},
            {"\x01\x7f", "error: no command '..'"},
            {"", "ok\n"},
            {"  calls   modem_get_build_id\r", "0\nok\n"},
    };
    for (const auto& [line, reply] : rows) {
        EXPECT_THAT(sim::runCommand(line), HasSubstr(reply)) << line;
    }
    const std::string pointers(2 * sizeof(modem_atlog_cmd_type), '1');
    EXPECT_THAT(sim::runCommand("event 2 " + pointers), HasSubstr("use 'at'"));
}

TEST_F(Desk, TextPortServesSomeWhileOthersMisbehave) {
    const std::string path = runtime::simulatorPort("0");
    Peer deaf(path);
    while (deaf.say("help\n", MSG_DONTWAIT)) {
    }
    Peer endless(path);
    endless.say(std::string(1 << 20, 'x'));
    EXPECT_THAT(endless.hear("<end>"), HasSubstr("error: line above 65536 bytes"));
    Peer halfway(path);
    halfway.say("set build-");
    Peer good(path);
    good.say("set build-id A1\nstate build-id\n");
    EXPECT_EQ("ok\nbuild-id            A1\nok\n", good.hear("A1\nok\n"));
    halfway.say("time now\n");
    EXPECT_EQ("ok\n", halfway.hear("ok\n"));
}

TEST(TextPort, ReplacesAStaleSocketAndNoLiveOne) {
    const std::string path = runtime::directory() + "/port";
    const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(0, bind(dead, reinterpret_cast<sockaddr*>(&address), sizeof address));
    close(dead);
    sim::serveTextPort(path, [](const std::string& line) { return line + "!\n"; });
    EXPECT_THROW(sim::serveTextPort(path, nullptr), std::system_error);
    Peer peer(path);
    peer.say("a\nb\n");
    EXPECT_EQ("a!\nb!\n", peer.hear("b!\n"));
}
