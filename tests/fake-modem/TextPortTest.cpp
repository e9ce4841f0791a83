#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include "desk/libmodemapi_vendor/src/TextPort.h"
#include "desk/runtime/UnixSocket.h"

using namespace std::chrono_literals;

/** The limits in the docs; two peers stall, one within its line and one within the reply. */
TEST(TextPort, EndsConnectionsThatPassItsLimits) {
    const std::string path = testing::TempDir() + "text-port." + std::to_string(getpid());
    const auto reply = [](const std::string& line) { return line + std::string(1 << 22, '.'); };
    fake::serveTextPort(path, reply);
    std::vector<runtime::UniqueFd> peers;
    const auto say = [&](size_t peer, const std::string& text) {
        (void)!send(peers[peer].get(), text.data(), text.size(), MSG_NOSIGNAL);
    };
    const auto hear = [&](size_t peer, size_t size) {
        std::string text(size, '\0');
        text.resize(std::max<ssize_t>(0, recv(peers[peer].get(), text.data(), size, MSG_WAITALL)));
        return text;
    };
    while (peers.size() < 17) {
        peers.push_back(runtime::connectTo(path, 60s));
    }
    say(16, "x");
    EXPECT_THAT(hear(16, 99), testing::StartsWith("error: too many connections"));
    say(15, std::string(65537, 'x'));
    EXPECT_EQ(hear(15, 99), "error: line above 65536 bytes\n");
    say(1, std::string(65536, 'x') + '\n');
    say(0, "x");
    EXPECT_EQ(hear(0, 99), "error: line not completed in time\n");
    pollfd unread{peers[1].get(), 0, 0};  // waits for its end, which poll reports unasked
    EXPECT_EQ(poll(&unread, 1, -1), 1);
}
