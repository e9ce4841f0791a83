#include "Relay.h"

#include <fcntl.h>
#include <hidl/Transport.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "Api.h"
#include "Failure.h"
#include "Values.h"
#include "runtime/UnixSocket.h"

namespace relay {

namespace {

using hal::Connection;
using hal::Parcel;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

/** A relay that nobody joins in this time ends. */
constexpr auto FIRST_MEMBER_WAIT = 5s;

/** Waits so long for the name, which the relay before this one has until its process has ended. */
constexpr auto FORMER_RELAY_WAIT = 500ms;

/**
 * When another program takes the callbacks, they are taken back after so long: time enough for that
 * program to get the answer to its request.
 */
constexpr auto TAKE_BACK_WAIT = 300ms;

/** Code of the method of IModemResponse that answers a request; 0 when there is none. */
uint32_t answerTo(const hal::Method& request) {
    const std::string name = request.name + std::string("Response");
    for (size_t i = 0; i < api::ANSWERS.methodCount; ++i) {
        if (name == api::ANSWERS.methods[i].name) {
            return api::ANSWERS.methods[i].code;
        }
    }
    return 0;
}

/**
 * Members, requests under way and the connection to the service. Calls come in on a thread per
 * member and on one of the service; none of them waits for a peer, as a served connection keeps
 * what its peer does not take, and cuts it at the transport's bounds. Lives until the process ends.
 */
class Relay {
public:
    explicit Relay(int instance) : mInstance(instance) {}

    [[noreturn]] void run();

    void join(const std::shared_ptr<Connection>& connection, uint32_t interest, uint32_t object);
    /** @return how many members there still are */
    size_t leave(const Connection* connection);

    bool ask(Connection* connection, uint32_t group, const hal::Method& request, Parcel& args);
    void await(Connection* connection, const hal::Method& request, int32_t serial);

    void answer(uint32_t code, int32_t serial, const Parcel& args);
    void event(uint32_t code, const Parcel& args);
    void displaced(uint64_t installation);
    void serviceGone(const std::string& reason);

private:
    struct Member {
        std::shared_ptr<Connection> connection;
        uint32_t interest;
        uint32_t object;
    };
    using Key = std::pair<uint32_t, int32_t>;  ///< code of the answer, serial

    void connect(std::unique_lock<std::mutex>& guard);
    void install();
    void installed(uint64_t installation, const std::string& failure);
    int32_t freeSerial(uint32_t answer);
    void send(uint32_t code, const std::string& args);
    static void tell(const Member& member, uint32_t code, const Parcel& args);
    template <class Value>
    static void tell(const Member& member, uint32_t code, const Value& value);
    Member* memberOf(const Connection* connection);

    const int mInstance;
    std::mutex mLock;
    std::condition_variable mChanged;
    std::map<const Connection*, Member> mMembers;
    bool mJoined = false;
    std::string mGone;
    std::shared_ptr<Connection> mService;
    uint64_t mInstallation = 0;
    bool mInstalled = false;
    Clock::time_point mInstallAt = Clock::time_point::max();
    std::map<Key, const Connection*> mUnderWay;
    std::vector<std::pair<uint32_t, std::string>> mWaiting;  ///< requests until mInstalled
    int32_t mNextSerial = 0;
};

/** The published object: takes the calls of members, on the thread of each one's connection. */
class Door : public hal::Stub {
public:
    explicit Door(Relay& relay) : mRelay(relay) {}

    bool onTransact(uint32_t code, Parcel& args, Parcel&) override {
        Connection* const connection = args.connection();
        uint32_t interest = 0;
        uint32_t object = 0;
        if (code == JOIN && args.read(&interest) && args.read(&object)) {
            const auto shared = connection->shared_from_this();
            mRelay.join(shared, interest, object);
            connection->onClosed([this, connection] { mRelay.leave(connection); });
            return true;
        }
        if (code == LEAVE) {
            // The last one's connection ends with the process, when the callbacks are free.
            if (mRelay.leave(connection) > 0) {
                connection->close("");
            }
            return true;
        }
        const uint32_t method = code & ~GROUP;
        if (method < 1 || method > api::REQUESTS.methodCount) {
            return false;
        }
        const hal::Method& request = api::REQUESTS.methods[method - 1];
        int32_t serial = 0;
        if ((code & GROUP) == AWAIT && args.read(&serial)) {
            mRelay.await(connection, request, serial);
            return true;
        }
        return mRelay.ask(connection, code & GROUP, request, args);
    }

private:
    Relay& mRelay;
};

/**
 * One of the two callback objects. The service releases both when another client installs its own,
 * which is seen by the destructor of the object for events.
 */
class Callback : public hal::Stub {
public:
    Callback(Relay& relay, bool answers, uint64_t installation)
        : mRelay(relay), mAnswers(answers), mInstallation(installation) {}

    ~Callback() override {
        if (!mAnswers) {
            mRelay.displaced(mInstallation);
        }
    }

    bool onTransact(uint32_t code, Parcel& args, Parcel&) override {
        const hal::Interface& table = mAnswers ? api::ANSWERS : api::EVENTS;
        nlohmann::ordered_json arguments;
        if (code < 1 || code > table.methodCount ||
            !values::decode(args, table.methods[code - 1], arguments)) {
            return false;
        }
        if (mAnswers) {
            mRelay.answer(code, arguments["info"]["serial"], args);
        } else {
            mRelay.event(code, args);
        }
        return true;
    }

private:
    Relay& mRelay;
    const bool mAnswers;
    const uint64_t mInstallation;
};

void Relay::run() {
    // Random, since answers to requests of a former relay may still come to this one: they must
    // not have the serial of a request of its own.
    std::random_device random;
    mNextSerial = std::uniform_int_distribution<int32_t>(1000, 899999)(random);
    const auto deadline = Clock::now() + FORMER_RELAY_WAIT;
    while (hal::publish(descriptor(), name(mInstance), new Door(*this)) != android::OK) {
        if (Clock::now() > deadline) {
            _exit(0);  // another relay was faster, or there is no usable runtime folder
        }
        std::this_thread::sleep_for(1ms);
    }
    std::unique_lock<std::mutex> guard(mLock);
    mChanged.wait_for(guard, FIRST_MEMBER_WAIT, [this] { return mJoined; });
    if (!mMembers.empty()) {
        connect(guard);
    }
    while (!mMembers.empty() && mGone.empty()) {
        const bool due = Clock::now() >= mInstallAt;
        if (due) {
            mInstallAt = Clock::time_point::max();
            install();
        } else if (mInstallAt == Clock::time_point::max()) {
            mChanged.wait(guard);
        } else {
            mChanged.wait_until(guard, mInstallAt);
        }
    }
    for (const auto& [connection, member] : mMembers) {
        tell(member, GONE, mGone);
    }
    const std::shared_ptr<Connection> service = mService;
    guard.unlock();
    if (service != nullptr) {
        service->close("relay over");
    }
    std::exit(0);  // sends what is kept for the members
}

void Relay::connect(std::unique_lock<std::mutex>& guard) {
    guard.unlock();
    std::string reason;
    const auto service = Connection::connect(
            hal::servicePath(api::REQUESTS.descriptor, name(mInstance)), &reason);
    guard.lock();
    if (service == nullptr) {
        mGone = "no service: " + reason + howToStart(mInstance);
        return;
    }
    mService = service;
    mInstallAt = Clock::now();
    guard.unlock();
    service->onClosed([this, raw = service.get()] {
        const std::string why = raw->endReason();
        serviceGone("the service has gone" + (why.empty() ? "" : ": " + why));
    });
    guard.lock();
}

void Relay::install() {
    // The call waits for the service, and a service that hangs must not hold up this process.
    std::thread([this, service = mService, number = ++mInstallation] {
        Parcel arguments(service.get());
        for (const bool answers : {true, false}) {
            arguments.write(service->exportObject(new Callback(*this, answers, number)));
        }
        Parcel reply;
        const uint32_t code = api::REQUESTS.methods[0].code;  // setCallback
        const auto sent = service->transact(hal::SERVICE_TARGET, code, arguments, &reply);
        installed(number, sent.isOk() ? "" : sent.description());
    }).detach();
}

void Relay::installed(uint64_t installation, const std::string& failure) {
    if (!failure.empty()) {
        serviceGone("the service has gone: " + failure);
        return;
    }
    const std::lock_guard<std::mutex> guard(mLock);
    if (installation != mInstallation || mInstallAt != Clock::time_point::max()) {
        return;  // another program took the callbacks meanwhile
    }
    mInstalled = true;
    for (const auto& [code, args] : std::exchange(mWaiting, {})) {
        send(code, args);
    }
    for (const auto& [connection, member] : mMembers) {
        tell(member, READY, getpid());
    }
}

void Relay::join(const std::shared_ptr<Connection>& connection, uint32_t interest,
                 uint32_t object) {
    const std::lock_guard<std::mutex> guard(mLock);
    const Member& member = mMembers[connection.get()] = {connection, interest, object};
    mJoined = true;
    if (mInstalled) {
        tell(member, READY, getpid());
    }
    mChanged.notify_all();
}

size_t Relay::leave(const Connection* connection) {
    std::shared_ptr<Connection> kept;  // its destructor runs after the lock is released
    const std::lock_guard<std::mutex> guard(mLock);
    const auto member = mMembers.find(connection);
    if (member == mMembers.end()) {
        return mMembers.size();
    }
    kept = std::move(member->second.connection);
    mMembers.erase(member);
    for (auto request = mUnderWay.begin(); request != mUnderWay.end();) {
        request = request->second == connection ? mUnderWay.erase(request) : std::next(request);
    }
    mChanged.notify_all();
    return mMembers.size();
}

Relay::Member* Relay::memberOf(const Connection* connection) {
    const auto member = mMembers.find(connection);
    return member != mMembers.end() ? &member->second : nullptr;
}

int32_t Relay::freeSerial(uint32_t answer) {
    do {
        mNextSerial = mNextSerial % 999999 + 1;
    } while (mUnderWay.count({answer, mNextSerial}) != 0);
    return mNextSerial;
}

bool Relay::ask(Connection* connection, uint32_t group, const hal::Method& request, Parcel& args) {
    int32_t serial = 0;
    if ((group != ASK && group != ASK_WITH_SERIAL) || args.size() < sizeof(serial)) {
        return false;
    }
    std::string bytes(reinterpret_cast<const char*>(args.data()), args.size());
    memcpy(&serial, bytes.data(), sizeof(serial));
    const std::lock_guard<std::mutex> guard(mLock);
    const Member* const member = memberOf(connection);
    if (member == nullptr) {
        return false;
    }
    const uint32_t answer = answerTo(request);
    serial = group == ASK ? freeSerial(answer) : serial;
    if (mUnderWay.size() >= MAX_UNDER_WAY) {
        tell(*member, REFUSED, std::to_string(MAX_UNDER_WAY) + " requests are under way");
    } else if (!mUnderWay.insert({{answer, serial}, connection}).second) {
        tell(*member, REFUSED,
             "serial " + std::to_string(serial) + " is under way in another call of this method");
    } else {
        tell(*member, ACCEPTED, serial);
        memcpy(bytes.data(), &serial, sizeof(serial));
        send(request.code, bytes);
    }
    return true;
}

void Relay::await(Connection* connection, const hal::Method& request, int32_t serial) {
    const std::lock_guard<std::mutex> guard(mLock);
    mUnderWay.insert({{answerTo(request), serial}, connection});
}

void Relay::send(uint32_t code, const std::string& args) {
    if (!mInstalled) {
        mWaiting.emplace_back(code, args);
        return;
    }
    Parcel parcel;
    parcel.writeBytes(args.data(), args.size());
    // A service that has gone is told by its closed connection.
    (void)mService->transact(hal::SERVICE_TARGET, code, parcel).isOk();
}

void Relay::answer(uint32_t code, int32_t serial, const Parcel& args) {
    const std::lock_guard<std::mutex> guard(mLock);
    const auto request = mUnderWay.find({code, serial});
    const Connection* const owner = request != mUnderWay.end() ? request->second : nullptr;
    if (owner != nullptr) {
        mUnderWay.erase(request);
    }
    for (const auto& [connection, member] : mMembers) {
        if (connection == owner || (member.interest & ALL_ANSWERS) != 0) {
            tell(member, ANSWER + code, args);
        }
    }
}

void Relay::event(uint32_t code, const Parcel& args) {
    const std::lock_guard<std::mutex> guard(mLock);
    for (const auto& [connection, member] : mMembers) {
        if ((member.interest & EVENTS) != 0) {
            tell(member, EVENT + code, args);
        }
    }
}

void Relay::displaced(uint64_t installation) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (installation != mInstallation) {
        return;
    }
    mInstalled = false;
    mInstallAt = Clock::now() + TAKE_BACK_WAIT;
    for (const auto& [connection, member] : mMembers) {
        tell(member, NOTE,
             std::string("another program took the callbacks; they are taken back, "
                         "events and answers may have been missed"));
    }
    mChanged.notify_all();
}

void Relay::serviceGone(const std::string& reason) {
    const std::lock_guard<std::mutex> guard(mLock);
    mGone = mGone.empty() ? reason : mGone;
    mChanged.notify_all();
}

void Relay::tell(const Member& member, uint32_t code, const Parcel& args) {
    Parcel copy;
    copy.writeBytes(args.data(), args.size());
    // A member that has gone or was cut is told by its closed connection.
    (void)member.connection->transact(member.object, code, copy).isOk();
}

template <class Value>
void Relay::tell(const Member& member, uint32_t code, const Value& value) {
    Parcel args;
    if constexpr (std::is_integral_v<Value>) {
        args.write(static_cast<int32_t>(value));
    } else {
        args.writeString(value);
    }
    tell(member, code, args);
}

}  // namespace

std::string descriptor() {
    return "modemctl@1.0::Relay";
}

std::string name(int instance) {
    return "instance" + std::to_string(instance);
}

int holder(int instance) {
    try {
        const auto socket = runtime::connectTo(hal::servicePath(descriptor(), name(instance)), 1s);
        return runtime::ownUsersProcess(socket.get());
    } catch (const std::system_error&) {
        return 0;
    }
}

void start(int instance) {
    const std::string number = std::to_string(instance);
    const char* words[] = {"modemctl", "--instance", number.c_str(), "relay", nullptr};
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&files, fd, "/dev/null", O_RDWR, 0);
    }
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A session of its own: Ctrl-C and Ctrl-Z of a terminal are not meant for it.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t process = 0;
    const int error = posix_spawn(&process, "/proc/self/exe", &files, &attributes,
                                  const_cast<char**>(words), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw Failure(NO_SERVICE, std::string("cannot start the relay: ") + strerror(error));
    }
}

void run(int instance) {
    for (const int ignored : {SIGPIPE, SIGINT, SIGHUP}) {
        signal(ignored, SIG_IGN);
    }
    (new Relay(instance))->run();
}

}  // namespace relay
