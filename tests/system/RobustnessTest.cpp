#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/system/System.h"
#include "tools/modemctl/Api.h"
#include "tools/modemctl/Failure.h"

namespace {

using Robustness = SystemTest;

std::string bytesOf(const std::vector<uint32_t>& fields) {
    return {reinterpret_cast<const char*>(fields.data()), fields.size() * sizeof(uint32_t)};
}

/** A call of the service as it stands on the socket. */
std::string message(const char* request, const std::string& arguments) {
    const auto size = static_cast<uint32_t>(3 * sizeof(uint32_t) + arguments.size());
    return bytesOf({size, hal::SERVICE_TARGET, api::request(request).code, 0}) + arguments;
}

/** Somebody at the service's socket who need not keep to any rule. */
class Peer {
public:
    Peer() : mFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        hal::servicePath(api::REQUESTS.descriptor, "instance0")
                .copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, connect(mFd, reinterpret_cast<sockaddr*>(&address), sizeof address));
    }
    ~Peer() { close(mFd); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void write(const std::string& bytes) const {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  send(mFd, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    void endWriting() const { shutdown(mFd, SHUT_WR); }
    void read(size_t size) const {
        std::string bytes(size, '\0');
        EXPECT_EQ(static_cast<ssize_t>(size), recv(mFd, bytes.data(), size, MSG_WAITALL));
    }

    /** Installs callbacks and waits for the reply. */
    void install() const {
        write(bytesOf({20, hal::SERVICE_TARGET, 1, 1, 1, 2}));
        read(16);
    }

    /** Reads until the service ends the connection. */
    bool isCut() const {
        char bytes[65536];
        ssize_t count = 1;
        pollfd input{mFd, POLLIN, 0};
        while (count > 0 && poll(&input, 1, static_cast<int>(PATIENCE.count())) == 1) {
            count = recv(mFd, bytes, sizeof bytes, 0);
        }
        return count <= 0;
    }

private:
    const int mFd;
};

}  // namespace

TEST_F(Robustness, AKilledClientLeavesAServiceForTheNext) {
    const Host host;
    host.sim("delay modem_get_build_id 0-20");
    for (int round = 0; round < 5; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            const Peer client;
            client.install();
            for (uint32_t serial = 1000; serial < 1200; ++serial) {
                client.write(message("getBuildId", bytesOf({serial})));
                client.write(message("getOperatingMode", bytesOf({serial})));
            }
            client.read(1000);
            kill(getpid(), SIGKILL);
        }
        int status = 0;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(SIGKILL, WTERMSIG(status));
        Client next;
        EXPECT_EQ("error=0 mode=0", next.call("getOperatingMode"));
        EXPECT_EQ("error=0 buildId=SIMULATED.MODEM.1.0-00001", next.call("getBuildId"));
    }
}

TEST_F(Robustness, ASecondHostIsRefusedAndAKilledOneReplaced) {
    const Host first;
    Client client;
    {
        Process second({HOST});
        EXPECT_TRUE(
                second.prints("failed to register MODEM HIDL service: instance0, status = -17"));
        EXPECT_TRUE(second.prints("instance 0 is already served by process "));
        EXPECT_EQ(1, second.wait());
        EXPECT_EQ("error=0 mode=0", client.call("getOperatingMode"));
        Process killed({HOST, "--instance", "1"});
        EXPECT_TRUE(killed.prints("ready: "));
    }
    EXPECT_EQ("error=0 mode=0", client.call("getOperatingMode"));
    const Host again(1);
    EXPECT_EQ("error=0 mode=0", Client(1).call("getOperatingMode"));
}

TEST_F(Robustness, APeerThatSendsNonsenseLosesItsConnectionAlone) {
    Host host;
    Client client;
    const std::string whole = message("getOperatingMode", bytesOf({7}));
    const std::pair<const char*, std::string> rows[] = {
            {"half a message, then the end", whole + whole.substr(0, 18)},
            {"garbage", "GET / HTTP/1.0\r\nAccept: everything\r\n\r\n"},
            {"huge length", bytesOf({0x7fffffff, 1, 1, 0})},
            {"no room for its own fields", bytesOf({11, 1, 1, 0})},
            {"code 0", bytesOf({12, 1, 0, 0})},
            {"code out of range", bytesOf({16, 1, 54, 0, 7})},
            {"no such target", bytesOf({16, 77, 2, 0, 7})},
            {"too few arguments", message("getOperatingMode", "abc")},
            {"too many arguments", message("getOperatingMode", bytesOf({7, 8}))},
            {"reply to no call", bytesOf({12, 0, 1, 9})},
    };
    for (const auto& [what, bytes] : rows) {
        const Peer peer;
        peer.write(bytes);
        if (bytes.rfind(whole, 0) == 0) {
            peer.endWriting();
        }
        EXPECT_TRUE(peer.isCut()) << what;
        EXPECT_EQ("error=0 mode=0", client.call("getOperatingMode")) << what;
    }
    EXPECT_TRUE(host.prints(" cut off: ", std::size(rows) - 1));
}

/** One peer leaves a message half sent, another one asks for much and reads none of it. */
TEST_F(Robustness, StalledPeersAreCutAndHoldUpNoOtherQmiService) {
    Host host;
    EXPECT_EQ("error=0",
              Client().call("writeEfsFile 1 0 @" + file("efs", std::string(10240, 'x'))));
    const Peer half;
    half.write(message("getOperatingMode", "").substr(0, 10));
    const Peer greedy;
    greedy.install();
    for (int i = 0; i < 100; ++i) {
        greedy.write(message("readEfsFile", bytesOf({7, 1}) + '\0'));
    }
    std::string calls;
    int unchanged = 0;
    EXPECT_TRUE(await([&] {  // until an answer does not get through
        const std::string now = host.sim("calls modem_read_efs_for_subid");
        unchanged = std::exchange(calls, now) == now ? unchanged + 1 : 0;
        return unchanged == 50;
    }));
    Client client;
    const int32_t serial = client.send("readEfsFile 1 0");
    EXPECT_EQ("error=0 mode=0", client.call("getOperatingMode"));
    EXPECT_EQ(std::string::npos, host.output().find("peer has not taken"));
    EXPECT_EQ(0U, client.answer(serial).rfind("readEfsFileResponse error=0 data=hex:78", 0));
    EXPECT_TRUE(host.prints("peer has not taken a message within 5000 ms"));
    EXPECT_TRUE(host.prints("peer has not completed a message within 5000 ms"));
    EXPECT_TRUE(greedy.isCut());
    EXPECT_TRUE(half.isCut());
}

TEST_F(Robustness, AHostLeavesCleanlyUnderLoad) {
    for (int round = 0; round < (SANITIZED ? 5 : 20); ++round) {
        Host host;
        host.sim("delay modem_get_build_id 0-5");
        host.sim("delay modem_get_bands_info 0-5");
        std::atomic<int> turns{0};
        const auto load = [&turns] {
            try {
                for (Client client;; client.install(), ++turns) {
                    for (const char* request : {"getBuildId", "getBandsInfo", "readPrl 0",
                                                "getNRNetworkMode", "getOperatingMode"}) {
                        client.send(request);
                    }
                }
            } catch (const Failure&) {  // the service has gone
            }
        };
        std::vector<std::thread> clients;
        for (int i = 0; i < 8; ++i) {
            clients.emplace_back(load);
        }
        EXPECT_TRUE(await([&] { return turns >= 100; }));
        host.stop();
        for (std::thread& client : clients) {
            client.join();
        }
    }
}
