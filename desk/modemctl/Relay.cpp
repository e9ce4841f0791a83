#include "Relay.h"

#include <hidl/Transport.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "Api.h"
#include "Failure.h"
#include "RelayMembers.h"
#include "Values.h"
#include "runtime/RuntimeDir.h"

namespace relay {

namespace {

using hal::Connection;
using hal::Parcel;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

/** A relay that nobody joins in this time ends. */
constexpr auto FIRST_MEMBER_WAIT = 5s;

/** So long a relay stays for the next call after its last member has left, without callbacks. */
constexpr auto LINGER = 2s;

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
 * Stands between the members and the service, and holds its callbacks. Calls come in on a thread
 * per member and on one of the service; none of them waits for a peer, as a served connection keeps
 * what its peer does not take, and cuts it at the transport's bounds. Lives until the process ends.
 */
class Relay {
public:
    explicit Relay(int instance) : mInstance(instance) {}

    [[noreturn]] void run();

    void join(const std::shared_ptr<Connection>& connection, uint32_t interest, uint32_t object);
    void leave(const Connection* connection);

    bool ask(Connection* connection, uint32_t group, const hal::Method& request, Parcel& args);
    void await(Connection* connection, const hal::Method& request, int32_t serial);

    void answer(uint32_t code, int32_t serial, const Parcel& args);
    void event(uint32_t code, const Parcel& args);
    void displaced(uint64_t installation);
    void serviceGone(const Connection* service, const std::string& reason);

private:
    void connect(std::unique_lock<std::mutex>& guard);
    void serve(std::unique_lock<std::mutex>& guard);
    void closeLeft(std::unique_lock<std::mutex>& guard);
    void install();
    void installed(uint64_t installation, const std::string& failure);
    void send(uint32_t code, const std::string& args);

    const int mInstance;
    std::mutex mLock;  ///< guards what follows
    std::condition_variable mChanged;
    Members mMembers;
    std::vector<std::shared_ptr<Connection>> mLeft;  ///< of former members, to be closed
    std::string mGone;
    std::shared_ptr<Connection> mService;
    uint64_t mInstallation = 0;
    bool mInstalled = false;
    Clock::time_point mInstallAt = Clock::time_point::max();
    std::vector<std::pair<uint32_t, std::string>> mWaiting;  ///< requests until mInstalled
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
            mRelay.leave(connection);
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
    const auto deadline = Clock::now() + FORMER_RELAY_WAIT;
    while (hal::publish(descriptor(), name(mInstance), new Door(*this)) != android::OK) {
        if (Clock::now() > deadline) {
            _exit(0);  // another relay was faster, or there is no usable runtime folder
        }
        std::this_thread::sleep_for(1ms);
    }
    std::unique_lock<std::mutex> guard(mLock);
    auto patience = FIRST_MEMBER_WAIT;
    while (mGone.empty() &&
           mChanged.wait_for(guard, patience, [this] { return !mMembers.empty(); })) {
        connect(guard);
        serve(guard);
        patience = LINGER;
    }
    guard.unlock();
    std::exit(0);  // sends what is kept for the members
}

/** Holds the callbacks until the last member has left or the service has gone. */
void Relay::serve(std::unique_lock<std::mutex>& guard) {
    while (mGone.empty() && !mMembers.empty()) {
        if (!mLeft.empty()) {
            closeLeft(guard);
        } else if (Clock::now() >= mInstallAt) {
            mInstallAt = Clock::time_point::max();
            install();
        } else {
            mChanged.wait_until(guard, mInstallAt);
        }
    }
    mMembers.tellAll(GONE, mGone);
    mInstalled = false;  // who joins from now on waits for READY
    mWaiting.clear();
    ++mInstallation;
    std::shared_ptr<Connection> service = std::exchange(mService, nullptr);
    guard.unlock();
    if (service != nullptr) {
        service->close("no member is left");
        service = nullptr;
    }
    guard.lock();
    closeLeft(guard);  // the last one ends when the callbacks are free
}

/** Without the lock, which the destructors of connections take. */
void Relay::closeLeft(std::unique_lock<std::mutex>& guard) {
    auto left = std::exchange(mLeft, {});
    guard.unlock();
    for (const auto& connection : left) {
        connection->close("");
    }
    left.clear();
    guard.lock();
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
        serviceGone(raw, "the service has gone" + (why.empty() ? "" : ": " + why));
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
    const std::lock_guard<std::mutex> guard(mLock);
    if (installation != mInstallation || mInstallAt != Clock::time_point::max()) {
        return;  // another program took the callbacks meanwhile, or no member is left
    }
    if (!failure.empty()) {
        mGone = "the service has gone: " + failure;
        mChanged.notify_all();
        return;
    }
    mInstalled = true;
    for (const auto& [code, args] : std::exchange(mWaiting, {})) {
        send(code, args);
    }
    mMembers.tellAll(READY, getpid());
}

void Relay::join(const std::shared_ptr<Connection>& connection, uint32_t interest,
                 uint32_t object) {
    const std::lock_guard<std::mutex> guard(mLock);
    mMembers.join(connection, interest, object);
    if (mInstalled) {
        mMembers.tell(connection.get(), READY, getpid());
    }
    mChanged.notify_all();
}

void Relay::leave(const Connection* connection) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (auto left = mMembers.leave(connection); left != nullptr) {
        mLeft.push_back(std::move(left));
        mChanged.notify_all();
    }
}

bool Relay::ask(Connection* connection, uint32_t group, const hal::Method& request, Parcel& args) {
    int32_t serial = 0;
    if ((group != ASK && group != ASK_WITH_SERIAL) || args.size() < sizeof(serial)) {
        return false;
    }
    std::string bytes(reinterpret_cast<const char*>(args.data()), args.size());
    memcpy(&serial, bytes.data(), sizeof(serial));
    const std::lock_guard<std::mutex> guard(mLock);
    if (!mMembers.has(connection)) {
        return false;
    }
    const uint32_t answer = answerTo(request);
    serial = group == ASK ? mMembers.freeSerial(answer) : serial;
    if (mMembers.admit(connection, {answer, serial})) {
        memcpy(bytes.data(), &serial, sizeof(serial));
        send(request.code, bytes);
    }
    return true;
}

void Relay::await(Connection* connection, const hal::Method& request, int32_t serial) {
    const std::lock_guard<std::mutex> guard(mLock);
    mMembers.await(connection, {answerTo(request), serial});
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
    mMembers.answer({code, serial}, args);
}

void Relay::event(uint32_t code, const Parcel& args) {
    const std::lock_guard<std::mutex> guard(mLock);
    mMembers.event(code, args);
}

void Relay::displaced(uint64_t installation) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (installation != mInstallation) {
        return;
    }
    mInstalled = false;
    mInstallAt = Clock::now() + TAKE_BACK_WAIT;
    mMembers.tellAll(NOTE, std::string("another program took the callbacks; they are taken back, "
                                       "events and answers may have been missed"));
    mChanged.notify_all();
}

void Relay::serviceGone(const Connection* service, const std::string& reason) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (service == mService.get() && mGone.empty()) {
        mGone = reason;
        mChanged.notify_all();
    }
}

}  // namespace

void run(int instance) {
    for (const int ignored : {SIGPIPE, SIGINT, SIGHUP}) {
        signal(ignored, SIG_IGN);
    }
    // The folder that the first member happened to work in is not held up.
    const auto folder = std::filesystem::absolute(runtime::directory());
    setenv("OX_RUNTIME_DIR", folder.c_str(), 1);
    std::filesystem::current_path("/");
    (new Relay(instance))->run();
}

}  // namespace relay
