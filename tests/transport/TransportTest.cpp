#include <framework/Handler.h>
#include <framework/Message.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <vendor/lyr/modem/1.0/transport.h>

using android::sp;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Void;
using hal::Connection;
using hal::Parcel;
using namespace std::chrono_literals;
using namespace vendor::lyr::modem::V1_0;

namespace {

constexpr auto TIMEOUT = 20s;

/** Values in the order in which threads bring them. */
class Events {
public:
    void add(int value) {
        std::lock_guard lock(mLock);
        mValues.push_back(value);
        mChanged.notify_all();
    }

    /** The values, as soon as there are so many; fewer when they do not come in time. */
    std::vector<int> wait(size_t count) {
        std::unique_lock lock(mLock);
        mChanged.wait_for(lock, TIMEOUT, [&] { return mValues.size() >= count; });
        return mValues;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<int> mValues;
};

/** Takes the modes of powerSaveModeInd. */
class Indication : public IModemIndication {
public:
    Return<void> modemRRCStateInd(uint32_t, int32_t, int32_t, int32_t, int32_t) override {
        return Void();
    }
    Return<void> modemRadioInfoReportInd(uint32_t, const RadioInfo&) override { return Void(); }
    Return<void> powerSaveModeInd(uint32_t, int32_t mode) override {
        if (onMode) {
            onMode(mode);
        }
        modes.add(mode);
        return Void();
    }
    Return<void> atLogControlInfoInd(uint32_t, uint8_t, uint8_t, const hidl_string&) override {
        return Void();
    }

    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) override {
        const bool written = write(fd->data[0], options[1].c_str(), options[1].size()) > 0;
        EXPECT_TRUE(written);
        return Void();
    }

    Events modes;
    std::function<void(int)> onMode;
};

/** As much of IModem as these tests call: setCallback, and requests that come back as modes. */
class Modem : public hal::Stub {
public:
    bool onTransact(uint32_t code, Parcel& args, Parcel&) override {
        return code == 1    ? setCallback(args)
               : code == 2  ? echo(args)
               : code == 16 ? drop(args)
                            : code == hal::DEBUG_CODE;
    }

    sp<IModemIndication> indication() {
        std::lock_guard lock(mLock);
        return mIndication;
    }

    /** That of the last setCallback. */
    std::shared_ptr<Connection> client() {
        std::lock_guard lock(mLock);
        return mClient;
    }

    std::function<void(IModemIndication*)> onSetCallback;

private:
    bool setCallback(Parcel& args) {
        sp<IModemResponse> response;
        sp<IModemIndication> indication;
        if (!decode(args, response) || !decode(args, indication) || !args.atEnd()) {
            return false;
        }
        const sp<IModemIndication> installed = indication;
        {
            std::lock_guard lock(mLock);
            std::swap(mIndication, indication);
            mClient = args.connection()->shared_from_this();
        }
        if (onSetCallback) {
            onSetCallback(installed.get());
        }
        return true;
    }

    bool echo(Parcel& args) {  // switchNRNetworkMode
        int32_t serial = 0;
        int32_t mode = 0;
        if (!args.read(&serial) || !args.read(&mode) || !args.atEnd()) {
            return false;
        }
        if (const sp<IModemIndication> callback = indication(); callback != nullptr) {
            (void)callback->powerSaveModeInd(0, mode);
        }
        return true;
    }

    static bool drop(Parcel& args) {  // activateMbnByName
        int32_t serial = 0;
        hidl_string name;
        return args.read(&serial) && decode(args, name) && args.atEnd();
    }

    std::mutex mLock;
    sp<IModemIndication> mIndication;
    std::shared_ptr<Connection> mClient;
};

/** Entries of a folder of this process's: threads or open files. */
ptrdiff_t countOf(const char* folder) {
    const std::filesystem::directory_iterator entries(std::string("/proc/self/") + folder);
    return std::distance(begin(entries), end(entries));
}

std::string failureOf(const Return<void>& status) {
    EXPECT_FALSE(status.isOk());
    return status.description();
}

template <class Condition>
bool await(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + TIMEOUT;
    bool met = condition();
    for (; !met && std::chrono::steady_clock::now() < end; met = condition()) {
        std::this_thread::yield();
    }
    return met;
}

std::vector<uint8_t> bytesOf(const std::vector<uint32_t>& words, const std::string& rest = "") {
    const auto* begin = reinterpret_cast<const uint8_t*>(words.data());
    std::vector<uint8_t> bytes(begin, begin + words.size() * sizeof(uint32_t));
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

class TransportTest : public testing::Test {
protected:
    TransportTest() {
        char folder[] = "/tmp/hidl-test-XXXXXX";
        mFolder = mkdtemp(folder);
        std::filesystem::remove(mFolder);  // made when missing
        setenv("OX_RUNTIME_DIR", mFolder.c_str(), 1);
    }
    ~TransportTest() override { std::filesystem::remove_all(mFolder); }

    android::status_t publish() { return hal::publish(IModem::descriptor, "instance0", modem); }

    static std::string path() { return hal::servicePath(IModem::descriptor, "instance0"); }

    static std::pair<std::shared_ptr<Connection>, int> connectionAndPeer() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        return {std::make_shared<Connection>(ends[0]), ends[1]};
    }

    /** A client that keeps no rule; reads give up in time. */
    static int connectRaw(const char* descriptor = IModem::descriptor) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{AF_UNIX, {}};
        hal::servicePath(descriptor, "instance0")
                .copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        const timeval limit{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        return fd;
    }

    /** False when the connection was cut. */
    static bool sendRaw(int fd, const std::vector<uint8_t>& bytes, size_t descriptors = 0) {
        iovec content{const_cast<uint8_t*>(bytes.data()), bytes.size()};
        alignas(cmsghdr) uint8_t control[CMSG_SPACE(8 * sizeof(int))] = {};
        msghdr message{nullptr, 0, &content, 1, nullptr, 0, 0};
        if (descriptors != 0) {
            message.msg_control = control;
            message.msg_controllen = CMSG_SPACE(descriptors * sizeof(int));
            const cmsghdr header{CMSG_LEN(descriptors * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
            memcpy(control, &header, sizeof(header));
            const std::vector<int> files(descriptors, fd);
            memcpy(control + CMSG_LEN(0), files.data(), descriptors * sizeof(int));
        }
        return sendmsg(fd, &message, MSG_NOSIGNAL) == ssize_t(bytes.size());
    }

    /** One that installs a callback, and has read the reply. */
    static int connectRawWithCallback() {
        const int fd = connectRaw();
        const std::vector<uint8_t> call = bytesOf({20, 1, 1, 1, 0, 2});
        EXPECT_EQ(write(fd, call.data(), call.size()), ssize_t(call.size()));
        char reply[16];
        EXPECT_EQ(recv(fd, reply, sizeof(reply), MSG_WAITALL), ssize_t(sizeof(reply)));
        return fd;
    }

    const sp<Modem> modem = new Modem;  ///< served by threads that outlive the test
    std::string mFolder;
};

/** A client with its callback installed. */
struct Client {
    Client() : modem(IModem::getService("instance0")), indication(new Indication) {
        EXPECT_TRUE(modem->setCallback(nullptr, indication).isOk());
    }

    /** A call and its answer, as that of one who is served. */
    bool isServed(int mode) {
        const size_t before = indication->modes.wait(0).size();
        EXPECT_TRUE(modem->switchNRNetworkMode(1, mode).isOk());
        const std::vector<int> modes = indication->modes.wait(before + 1);
        return modes.size() == before + 1 && modes.back() == mode;
    }

    sp<IModem> modem;
    sp<Indication> indication;
};

struct Breach {
    const char* name;
    std::vector<uint8_t> bytes;
    size_t descriptors = 0;
};

/** Served by generated code: 3 is powerSaveModeInd(type, mode), 4 takes a string, and there is
 * no 5. */
TEST_F(TransportTest, peerThatBreaksTheRulesLosesItsConnectionAlone) {
    const Breach breaches[] = {
            {"garbage", bytesOf({}, "GET / HTTP/1.1\r\nHost: modem\r\n\r\n")},
            {"huge length", bytesOf({UINT32_MAX, 1, 3, 0})},
            {"one byte too long", bytesOf({hal::MAX_MESSAGE_SIZE - 3, 1, 3, 0})},
            {"length below the header", bytesOf({11, 1, 3, 0, 0, 0})},
            {"unknown target", bytesOf({20, 2, 3, 0, 0, 2})},
            {"code 0", bytesOf({20, 1, 0, 0, 0, 2})},
            {"code out of range", bytesOf({20, 1, 5, 0, 0, 2})},
            {"too few arguments", bytesOf({16, 1, 3, 0, 0})},
            {"trailing bytes", bytesOf({24, 1, 3, 0, 0, 2, 3})},
            {"string longer than the message", bytesOf({22, 1, 4, 0, 0}, {1, 2, 5, 0, 0, 0})},
            {"unknown control code", bytesOf({12, 0, 3, 0})},
            {"release of what it does not have", bytesOf({16, 0, 2, 0, 7})},
            {"reply that nobody waits for", bytesOf({12, 0, 1, 1})},
            {"refusal by a client", bytesOf({16, 0, 3, 0, 0})},
            {"descriptor that no call takes", bytesOf({32, 1, 1, 0, 0, 0, 0, 0, 0}), 1},
            {"too many descriptors", bytesOf({32, 1, 1, 0, 0, 0, 0, 0, 0}), 5},
            {"handle without its descriptor", bytesOf({20, 1, hal::DEBUG_CODE, 1, 1, 0})},
            {"half a message", bytesOf({20, 1, 3, 0, 0})},
            {"half a header", bytesOf({20, 1})},
    };
    const sp<Indication> served = new Indication;
    ASSERT_EQ(served->registerAsService("instance0"), android::OK);
    const sp<IModemIndication> good = IModemIndication::getService("instance0");
    EXPECT_TRUE(good->powerSaveModeInd(0, 7).isOk());
    size_t calls = served->modes.wait(1).size();
    const ptrdiff_t files = countOf("fd");
    for (const Breach& breach : breaches) {
        ++calls;
        const bool half = strncmp(breach.name, "half", 4) == 0;
        hal::setStallLimit(half ? 100ms : 60s);
        const int fd = connectRaw(IModemIndication::descriptor);
        ASSERT_TRUE(sendRaw(fd, breach.bytes, breach.descriptors));
        char byte = 0;
        EXPECT_LE(recv(fd, &byte, 1, 0), 0) << breach.name;
        EXPECT_NE(errno, EAGAIN) << breach.name << ": still connected";
        close(fd);
        EXPECT_TRUE(good->powerSaveModeInd(0, 7).isOk()) << breach.name;
        EXPECT_EQ(served->modes.wait(calls), std::vector<int>(calls, 7)) << breach.name;
    }
    // The first line that the transport writes opens two, the breaches brought five.
    EXPECT_TRUE(await([&] { return countOf("fd") <= files + 2; })) << "descriptors stay open";
}

/** A process sends more than a socket takes, and closes the connection in order or exits. */
TEST_F(TransportTest, whatWasSentArrivesThoughItsSenderLeaves) {
    for (const bool exits : {false, true}) {
        auto [connection, fd] = connectionAndPeer();
        const pid_t child = fork();
        if (child == 0) {
            connection->start();
            connection->closeWhenUnused();
            sp<IModemIndication> peer = hal::makeProxy<IModemIndication>(connection, 1);
            for (int i = 0; i < 20; ++i) {
                (void)peer->atLogControlInfoInd(0, 0, 0, std::string(100000, 'x')).isOk();
            }
            if (!exits) {
                Events closed;
                connection->onClosed([&] { closed.add(1); });
                peer.clear();
                closed.wait(1);
                _exit(0);
            }
            exit(0);
        }
        connection.reset();  // the child has its own
        size_t size = 0;
        std::vector<char> bytes(100000);
        for (ssize_t got; (got = recv(fd, bytes.data(), bytes.size(), 0)) > 0;) {
            size += static_cast<size_t>(got);
        }
        EXPECT_GE(size, 20U * 100026) << "exits: " << exits;
        waitpid(child, nullptr, 0);
        close(fd);
    }
}

TEST_F(TransportTest, debugTakesADescriptorFromProcessToProcess) {
    const sp<Indication> served = new Indication;
    ASSERT_EQ(served->registerAsService("instance0"), android::OK);
    const ptrdiff_t files = countOf("fd");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    native_handle_t* handle = native_handle_create(1, 0);
    handle->data[0] = ends[1];
    const sp<IModemIndication> client = IModemIndication::getService("instance0");
    EXPECT_TRUE(client->powerSaveModeInd(0, 1).isOk());
    EXPECT_EQ(served->modes.wait(1).size(), 1U);
    close(STDIN_FILENO);  // so that the descriptor that comes is 0
    EXPECT_TRUE(client->debug(handle, {"json", "the state"}).isOk());
    native_handle_close(handle);
    native_handle_delete(handle);
    char text[20] = {};
    EXPECT_EQ(read(ends[0], text, sizeof(text)), 9);
    EXPECT_STREQ(text, "the state");
    EXPECT_EQ(read(ends[0], text, 1), 0) << "the service still holds the other end";
    close(ends[0]);
    EXPECT_TRUE(await([&] { return countOf("fd") <= files + 2; })) << "a connection's two ends";
}

TEST_F(TransportTest, callsFromInsideACallbackKeepTheOrder) {
    modem->onSetCallback = [](IModemIndication* callback) {
        for (int mode = 1; mode <= 3; ++mode) {
            (void)callback->powerSaveModeInd(0, mode);
        }
    };
    ASSERT_EQ(publish(), android::OK);
    const sp<IModem> service = IModem::getService("instance0");
    const sp<Indication> indication = new Indication;
    indication->onMode = [service, self = indication.get(), calls = 0](int) mutable {
        if (++calls < 4) {  // answered while 2 and 3 wait, which brings 1 to 3 behind them
            EXPECT_TRUE(service->setCallback(nullptr, self).isOk());
        }
    };
    EXPECT_TRUE(service->setCallback(nullptr, indication).isOk());
    EXPECT_EQ(indication->modes.wait(12), (std::vector<int>{1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3}));
}

TEST_F(TransportTest, whatAClientLeavesBehindIsLetGo) {
    ASSERT_EQ(publish(), android::OK);
    Client client;
    for (int i = 0; i < 1000; ++i) {  // each in place of the one before
        ASSERT_TRUE(client.modem->setCallback(nullptr, client.indication).isOk());
    }
    EXPECT_TRUE(client.isServed(1));
    EXPECT_EQ(client.indication->getStrongCount(), 2) << "one stub, the last, holds it";
    Events closed;
    modem->client()->onClosed([&] { closed.add(1); });
    client.modem.clear();  // the callback is still installed and keeps the connection
    EXPECT_TRUE(modem->indication()->powerSaveModeInd(0, 2).isOk());
    EXPECT_EQ(client.indication->modes.wait(2).back(), 2);
    Client next;  // takes its place, and then nothing is left
    EXPECT_EQ(closed.wait(1).size(), 1U);
    EXPECT_EQ(client.indication->getStrongCount(), 1);
    EXPECT_TRUE(next.isServed(3));
}

TEST_F(TransportTest, waitForAReplyEndsWithTheConnection) {
    const auto [connection, fd] = connectionAndPeer();
    connection->start();
    std::thread peer([raw = fd] {
        char call[16];
        EXPECT_EQ(recv(raw, call, sizeof(call), MSG_WAITALL), ssize_t(sizeof(call)));
        close(raw);
    });
    Events closed;
    connection->onClosed([&] { closed.add(1); });
    const sp<Modem> early = new Modem;
    const sp<Modem> late = new Modem;
    connection->exportObject(early);
    Parcel args;
    Parcel reply;
    const Return<void> status = connection->transact(hal::SERVICE_TARGET, 1, args, &reply);
    EXPECT_FALSE(status.isOk());
    EXPECT_TRUE(status.isDeadObject()) << status.description();
    EXPECT_FALSE(connection->isOpen());
    EXPECT_EQ(closed.wait(1).size(), 1U);
    connection->exportObject(late);
    EXPECT_EQ(early->getStrongCount() + late->getStrongCount(), 2) << "held by what is over";
    peer.join();
    const auto [unread, end] = connectionAndPeer();
    close(end);
    EXPECT_NE(failureOf(unread->transact(1, 1, args)).find("peer gone"), std::string::npos);
}

TEST_F(TransportTest, limitsHold) {
    const auto held = std::make_shared<std::vector<sp<IModemIndication>>>();
    modem->onSetCallback = [held](IModemIndication* callback) { held->emplace_back(callback); };
    ASSERT_EQ(publish(), android::OK);
    Client client;  // its callback is the first one held
    const std::string longest(hal::MAX_MESSAGE_SIZE - 24, 'x');
    EXPECT_NE(failureOf(client.modem->activateMbnByName(1, longest + 'x'))
                      .find("FAILED_TRANSACTION: dropped, its receiver gets nothing: a message of "
                            "1048577 bytes is longer than the transport's limit of 1048576"),
              std::string::npos);
    EXPECT_TRUE(client.modem->activateMbnByName(1, longest).isOk());
    EXPECT_TRUE(client.isServed(1)) << "the longest message was taken, the longer one not sent";
    size_t proxies = 1;
    while (client.modem->setCallback(nullptr, client.indication).isOk()) {
        ++proxies;
    }
    EXPECT_EQ(proxies, hal::MAX_PROXIES);
}

TEST_F(TransportTest, registrationNeedsAFreeNameAndASafeFolder) {
    const auto serve = [](const std::string& name) {
        return hal::publish(IModem::descriptor, name, new Modem);
    };
    EXPECT_EQ(IModem::getService("instance0"), nullptr);
    EXPECT_EQ(serve(""), -EINVAL);
    EXPECT_EQ(serve("a/b"), -EINVAL);
    EXPECT_EQ(serve(std::string(100, 'x')), -ENAMETOOLONG);
    ASSERT_EQ(serve("instance0"), android::OK);
    EXPECT_EQ(serve("instance0"), android::ALREADY_EXISTS);
    const std::vector<hal::Registration> all = hal::registrations();
    const hal::Registration& refused = all.back();
    EXPECT_EQ(refused.name, "instance0");
    EXPECT_EQ(refused.status, android::ALREADY_EXISTS);
    EXPECT_EQ(refused.holder, getpid()) << refused.reason;
    EXPECT_EQ(all[all.size() - 2].status, android::OK);
    EXPECT_EQ(serve("instance1"), android::OK);
    struct stat info {};
    ASSERT_EQ(stat((mFolder + "/" + IModem::descriptor).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700U);
    chmod(mFolder.c_str(), 0755);
    EXPECT_EQ(serve("instance2"), -EACCES);
    EXPECT_EQ(IModem::getService("instance1"), nullptr);
}

/** Takes its time for each message, and counts them. */
class Counter : public Handler {
public:
    int handle(std::shared_ptr<Message>) override {
        std::lock_guard lock(gate);
        std::this_thread::sleep_for(10us);
        ++count;
        return 0;
    }

    /** How many of so many messages are taken. */
    int take(int messages) {
        int taken = 0;
        for (; messages > 0; --messages) {
            taken += Message::obtain(1, shared_from_this(), nullptr, nullptr)->dispatch() == 0;
        }
        return taken;
    }

    std::mutex gate;
    std::atomic<int> count{0};
};

TEST_F(TransportTest, handlersHoldUpWhoAsksTooFastAndRefuseWhenTheyHang) {
    const auto moving = std::make_shared<Counter>();
    const auto hanging = std::make_shared<Counter>();
    modem->onSetCallback = [&](IModemIndication*) {
        std::lock_guard lock(hanging->gate);
        EXPECT_THAT(hanging->take(2000), testing::AllOf(testing::Ge(1024), testing::Le(1025)));
        EXPECT_EQ(moving->take(3000), 3000) << "of another handler";
    };
    ASSERT_EQ(publish(), android::OK);
    const Client client;
    EXPECT_TRUE(await([&] { return hanging->count >= 1024 && moving->count == 3000; }));
}

}  // namespace
