#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include <vendor/lyr/modem/1.0/transport.h>

using android::sp;
using android::hardware::hidl_string;
using android::hardware::Return;
using android::hardware::Void;
using android::hidl::base::V1_0::IBase;
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
        modes.add(mode);
        if (onMode) {
            onMode(mode);
        }
        return Void();
    }
    Return<void> atLogControlInfoInd(uint32_t, uint8_t, uint8_t, const hidl_string&) override {
        return Void();
    }

    Events modes;
    std::function<void(int)> onMode;
};

/** As much of IModem as these tests call: setCallback, and requests that come back as modes. */
class Modem : public hal::Stub {
public:
    bool onTransact(uint32_t code, Parcel& args, Parcel&) override {
        return code == 1 ? setCallback(args) : code == 2 ? echo(args) : code == 16 && drop(args);
    }

    sp<IModemIndication> indication() {
        std::lock_guard lock(mLock);
        return mIndication;
    }

    std::function<void(IModemIndication*)> onSetCallback;
    std::shared_ptr<Connection> client;  ///< of the last setCallback

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
            client = args.connection()->shared_from_this();
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
};

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
        setenv("OX_RUNTIME_DIR", mFolder.c_str(), 1);
    }
    ~TransportTest() override { std::filesystem::remove_all(mFolder); }

    android::status_t publish() { return hal::publish(IModem::descriptor, "instance0", modem); }

    static std::string path() { return hal::servicePath(IModem::descriptor, "instance0"); }

    /** A client that keeps no rule; reads give up in time. */
    static int connectRaw(const char* descriptor = IModem::descriptor) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{AF_UNIX, {}};
        hal::servicePath(descriptor, "instance0")
                .copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        const timeval limit{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        return fd;
    }

    /** One that installs a callback, and has read the reply. */
    static int connectRawWithCallback() {
        const int fd = connectRaw();
        const std::vector<uint8_t> call = bytesOf({20, 1, 1, 1, 0, 2});
        EXPECT_EQ(write(fd, call.data(), call.size()), ssize_t(call.size()));
        char reply[16];
        EXPECT_EQ(recv(fd, reply, sizeof reply, MSG_WAITALL), ssize_t(sizeof reply));
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
            {"half a message", bytesOf({20, 1, 3, 0, 0})},
            {"half a header", bytesOf({20, 1})},
    };
    const sp<Indication> served = new Indication;
    ASSERT_EQ(served->registerAsService("instance0"), android::OK);
    const sp<IModemIndication> good = IModemIndication::getService("instance0");
    size_t calls = 0;
    for (const Breach& breach : breaches) {
        ++calls;
        const bool half = strncmp(breach.name, "half", 4) == 0;
        hal::setStallLimit(half ? 100ms : 60s);
        const int fd = connectRaw(IModemIndication::descriptor);
        ASSERT_EQ(write(fd, breach.bytes.data(), breach.bytes.size()),
                  ssize_t(breach.bytes.size()));
        char byte = 0;
        EXPECT_LE(recv(fd, &byte, 1, 0), 0) << breach.name;
        EXPECT_NE(errno, EAGAIN) << breach.name << ": still connected";
        close(fd);
        EXPECT_TRUE(good->powerSaveModeInd(0, 7).isOk()) << breach.name;
        EXPECT_EQ(served->modes.wait(calls), std::vector<int>(calls, 7)) << breach.name;
    }
}

TEST_F(TransportTest, callsThatCameBeforeTheClientLeftAreServed) {
    ASSERT_EQ(publish(), android::OK);
    Client good;
    std::vector<uint8_t> bytes;
    for (uint32_t mode = 0; mode < 100; ++mode) {
        const std::vector<uint8_t> call = bytesOf({20, 1, 2, 0, 1, mode});
        bytes.insert(bytes.end(), call.begin(), call.end());
    }
    const int fd = connectRaw();
    ASSERT_EQ(write(fd, bytes.data(), bytes.size() - 1), ssize_t(bytes.size()) - 1);
    close(fd);
    std::vector<int> modes(99);
    std::iota(modes.begin(), modes.end(), 0);
    EXPECT_EQ(good.indication->modes.wait(99), modes);
    EXPECT_TRUE(good.isServed(5)) << "the half call was not";
}

TEST_F(TransportTest, peerThatReadsNothingIsCutAndOthersAreServed) {
    hal::setStallLimit(300ms);
    ASSERT_EQ(publish(), android::OK);
    Client good;
    const int fd = connectRawWithCallback();
    const sp<IModemIndication> stuck = modem->indication();
    Events failures;
    std::thread senders[2];
    for (std::thread& sender : senders) {
        sender = std::thread([&] {
            Return<void> status = Void();
            while (status.isOk()) {
                status = stuck->atLogControlInfoInd(0, 0, 0, std::string(100000, 'x'));
            }
            EXPECT_TRUE(status.isDeadObject());
            EXPECT_NE(status.description().find("untaken"), std::string::npos)
                    << status.description();
            failures.add(1);
        });
    }
    EXPECT_TRUE(good.modem->setCallback(nullptr, good.indication).isOk());
    EXPECT_TRUE(good.isServed(6));
    EXPECT_EQ(failures.wait(2).size(), 2U);
    for (std::thread& sender : senders) {
        sender.join();
    }
    EXPECT_TRUE(good.isServed(7));
    close(fd);
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
    modem->client->onClosed([&] { closed.add(1); });
    client.modem.clear();  // the callback is still installed and keeps the connection
    EXPECT_TRUE(modem->indication()->powerSaveModeInd(0, 2).isOk());
    EXPECT_EQ(client.indication->modes.wait(2).back(), 2);
    Client next;  // takes its place, and then nothing is left
    EXPECT_EQ(closed.wait(1).size(), 1U);
    EXPECT_EQ(client.indication->getStrongCount(), 1);
    EXPECT_TRUE(next.isServed(3));
}

TEST_F(TransportTest, callsToAClientThatIsGoneFail) {
    ASSERT_EQ(publish(), android::OK);
    const int fd = connectRawWithCallback();
    const sp<IModemIndication> gone = modem->indication();
    Events sent;
    std::thread sender([&] {
        Return<void> status = Void();
        while (status.isOk()) {
            status = gone->powerSaveModeInd(0, 1);
            sent.add(1);
        }
        EXPECT_TRUE(status.isDeadObject()) << status.description();
    });
    sent.wait(10);
    close(fd);
    sender.join();
    EXPECT_FALSE(gone->powerSaveModeInd(0, 1).isOk());
    EXPECT_TRUE(Client().isServed(1));
}

TEST_F(TransportTest, waitForAReplyEndsWithTheConnection) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const auto connection = std::make_shared<Connection>(ends[0]);
    connection->start();
    std::thread peer([raw = ends[1]] {
        char call[16];
        EXPECT_EQ(recv(raw, call, sizeof call, MSG_WAITALL), ssize_t(sizeof call));
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
}

TEST_F(TransportTest, limitsHold) {
    ASSERT_EQ(publish(), android::OK);
    Client client;
    const Return<void> status =
            client.modem->activateMbnByName(1, std::string(hal::MAX_MESSAGE_SIZE - 23, 'x'));
    EXPECT_FALSE(status.isOk());
    EXPECT_NE(status.description().find("FAILED_TRANSACTION"), std::string::npos);
    EXPECT_TRUE(client.modem->activateMbnByName(1, std::string(hal::MAX_MESSAGE_SIZE - 24, 'x'))
                        .isOk());
    EXPECT_TRUE(client.isServed(1)) << "the longest message was taken, the longer one not sent";

    std::vector<sp<IModem>> clients;
    while (clients.size() < hal::MAX_CLIENTS) {  // with the one above, one too many
        clients.push_back(IModem::getService("instance0"));
    }
    EXPECT_FALSE(clients.back()->setCallback(nullptr, nullptr).isOk());
    EXPECT_TRUE(client.isServed(2));

    std::vector<sp<IModemIndication>> held;  // one client makes the service hold one too many
    modem->onSetCallback = [&](IModemIndication* callback) { held.emplace_back(callback); };
    Return<void> more = Void();
    while (more.isOk() && held.size() <= hal::MAX_PROXIES) {
        more = client.modem->setCallback(nullptr, client.indication);
    }
    EXPECT_TRUE(more.isDeadObject());
    EXPECT_EQ(held.size(), hal::MAX_PROXIES);
    modem->onSetCallback = nullptr;
    held.clear();
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

/** Processes that all want the name at once; each reports its status and waits for its end. */
TEST_F(TransportTest, ofManyProcessesOneServesAndItsSocketIsReplacedAfterwards) {
    int reports[2];
    int wishes[2];
    ASSERT_EQ(pipe(reports) + pipe(wishes), 0);
    std::vector<pid_t> children(4);
    for (pid_t& child : children) {
        child = fork();
        if (child == 0) {
            const android::status_t status = publish();
            char wish = 0;
            const bool told = write(reports[1], &status, sizeof status) == sizeof status &&
                              read(wishes[0], &wish, 1) == 1;
            exit(told ? 0 : 1);
        }
    }
    int served = 0;
    for (size_t i = 0; i < children.size(); ++i) {
        android::status_t status = 1;
        ASSERT_EQ(read(reports[0], &status, sizeof status), ssize_t(sizeof status));
        EXPECT_TRUE(status == android::OK || status == android::ALREADY_EXISTS) << status;
        served += status == android::OK;
    }
    EXPECT_EQ(served, 1);
    EXPECT_TRUE(Client().isServed(1));
    for (const pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    EXPECT_TRUE(std::filesystem::exists(path())) << "nothing stale to replace";
    EXPECT_EQ(IModem::getService("instance0"), nullptr);
    EXPECT_EQ(publish(), android::OK);
    EXPECT_TRUE(Client().isServed(2));
    for (const int fd : {reports[0], reports[1], wishes[0], wishes[1]}) {
        close(fd);
    }
}

/** A process leaves by exit while calls come in and answers go out. */
TEST_F(TransportTest, processThatEndsUnderLoadEndsCleanly) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        Events calls;
        modem->onSetCallback = [&](IModemIndication*) { calls.add(1); };
        const android::status_t status = publish();
        const bool told = write(ready[1], &status, sizeof status) == sizeof status;
        calls.wait(100);
        exit(told ? 0 : 1);
    }
    android::status_t status = 1;
    ASSERT_EQ(read(ready[0], &status, sizeof status), ssize_t(sizeof status));
    ASSERT_EQ(status, android::OK);
    Client clients[4];
    std::vector<std::thread> threads;
    for (Client& client : clients) {
        threads.emplace_back([&] {
            while (client.modem->setCallback(nullptr, client.indication).isOk() &&
                   client.modem->switchNRNetworkMode(1, 2).isOk()) {
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    int code = -1;
    waitpid(child, &code, 0);
    EXPECT_EQ(code, 0);
    EXPECT_FALSE(std::filesystem::exists(path()));
    close(ready[0]);
    close(ready[1]);
}

TEST(CastTest, givesTheInterfaceThatAnObjectHas) {
    const sp<IBase> indication = new Indication;
    const std::string descriptor = IModemIndication::descriptor;  // at another address
    EXPECT_EQ(sp<IModemIndication>(IModemIndication::castFrom(indication)), indication);
    EXPECT_NE(indication->asInterface(descriptor.c_str()), nullptr);
    EXPECT_EQ(sp<IModemResponse>(IModemResponse::castFrom(indication)), nullptr);
    EXPECT_EQ(sp<IModemIndication>(IModemIndication::castFrom(sp<IBase>())), nullptr);
    EXPECT_EQ(sp<IModemIndication>(IModemIndication::castFrom(sp<IBase>(new IBase))), nullptr);
}

}  // namespace
