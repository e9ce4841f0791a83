#include "Sharing.h"

#include <vendor/lyr/modem/1.0/table.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <utility>

#include "SharingProtocol.h"

namespace sharing {

namespace {

using hal::Connection;
using hal::Parcel;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using namespace vendor::lyr::modem::V1_0;

/**
 * When another program takes the callbacks, they are taken back after so long: time enough for that
 * program to get the answer to its request.
 */
constexpr auto TAKE_BACK_WAIT = 300ms;

/** A request waits so long for the callbacks to be taken back. */
constexpr auto CALLBACKS_WAIT = 2s;

/** Code of the method of IModemResponse that answers a request; 0 when there is none. */
uint32_t answerTo(const hal::Method& request) {
    const std::string name = request.name + std::string("Response");
    for (size_t i = 0; i < IModemResponse_table.methodCount; ++i) {
        if (name == IModemResponse_table.methods[i].name) {
            return IModemResponse_table.methods[i].code;
        }
    }
    return 0;
}

/**
 * The published object. Its calls come on a thread per member and on one of the service; none of
 * them waits for a peer, since the transport queues what a peer does not take, and cuts it at its
 * bounds. Another thread installs and releases the callbacks.
 */
class Sharing : public hal::Stub {
public:
    explicit Sharing(const hal::Registration& service)
        : mPath(hal::servicePath(service.descriptor, service.name)), mObject(service.object) {}

    bool onTransact(uint32_t code, Parcel& args, Parcel& reply) override;

    /** Installs the callbacks while there is a member, and releases them. Does not return. */
    [[noreturn]] void hold();

    void answer(uint32_t code, const Parcel& args);
    void event(uint32_t code, const Parcel& args);
    void displaced(uint64_t installation);

private:
    using Guard = std::unique_lock<std::mutex>;
    using Key = std::pair<uint32_t, int32_t>;  ///< of a request: code of its answer, serial

    struct Member {
        std::shared_ptr<Connection> connection;
        uint32_t interest;
        uint32_t object;
        size_t requests = 0;  ///< in flight
        size_t bytes = 0;     ///< of these
    };

    struct Request {
        Member* member;
        size_t bytes;
    };

    bool join(Connection* connection, Parcel& args);
    void leave(const Connection* connection);
    bool ask(Connection* connection, uint32_t group, const hal::Method& request, Parcel& args);
    std::string admit(Member& member, Key request, size_t bytes);
    int32_t freeSerial(uint32_t answer);

    void install(Guard& guard);
    void release(Guard& guard);
    void closeLeft(Guard& guard);

    static void tell(const Member& member, uint32_t code, const Parcel& args);
    static void tell(const Member& member, uint32_t code, const std::string& text);
    void tellAll(uint32_t code, const std::string& text);

    const std::string mPath;
    const android::sp<hal::Stub> mObject;  ///< the service itself

    std::mutex mLock;  ///< guards what follows
    std::condition_variable mChanged;
    std::map<const Connection*, Member> mMembers;
    std::map<Key, Request> mInFlight;
    std::vector<std::shared_ptr<Connection>> mLeft;  ///< of former members, to be closed
    std::random_device mRandom;
    int32_t mNextSerial = std::uniform_int_distribution<>(1000, 899999)(mRandom);
    std::shared_ptr<Connection> mService;  ///< which the callbacks come over
    uint64_t mInstallation = 0;            ///< number of the latest one
    bool mInstalled = false;
    Clock::time_point mInstallAt;
};

/**
 * One of the two callback objects. The service releases both when another client installs its own,
 * which is seen by the destructor of the object for events.
 */
class Callback : public hal::Stub {
public:
    Callback(Sharing& sharing, bool answers, uint64_t installation)
        : mSharing(sharing), mAnswers(answers), mInstallation(installation) {}

    ~Callback() override {
        if (!mAnswers) {
            mSharing.displaced(mInstallation);
        }
    }

    bool onTransact(uint32_t code, Parcel& args, Parcel&) override {
        if (mAnswers) {
            mSharing.answer(code, args);
        } else {
            mSharing.event(code, args);
        }
        return true;
    }

private:
    Sharing& mSharing;
    const bool mAnswers;
    const uint64_t mInstallation;
};

bool Sharing::onTransact(uint32_t code, Parcel& args, Parcel& reply) {
    const uint32_t method = code & ~GROUP;
    switch (code & GROUP) {
        case 0:
            break;
        case ASK:
        case ASK_WITH_SERIAL:
            return method >= 1 && method <= IModem_table.methodCount &&
                   ask(args.connection(), code & GROUP, IModem_table.methods[method - 1], args);
        default:
            return false;
    }
    if (code == LEAVE) {
        leave(args.connection());
    } else if (code == HOLDS) {
        const std::lock_guard<std::mutex> guard(mLock);
        reply.write(uint32_t(mInstalled ? 1 : 0));
    } else {
        return code == JOIN && join(args.connection(), args);
    }
    return true;
}

bool Sharing::join(Connection* connection, Parcel& args) {
    Member member{connection->shared_from_this(), NONE, 0};
    if (!args.read(&member.interest) || !args.read(&member.object) || !args.atEnd()) {
        return false;
    }
    {
        const std::lock_guard<std::mutex> guard(mLock);
        const auto [place, added] = mMembers.emplace(connection, std::move(member));
        if (!added) {
            return false;
        }
        if (mInstalled) {
            tell(place->second, READY, Parcel());
        }
        mChanged.notify_all();
    }
    connection->onClosed([this, connection] { leave(connection); });
    return true;
}

void Sharing::leave(const Connection* connection) {
    const std::lock_guard<std::mutex> guard(mLock);
    const auto left = mMembers.find(connection);
    if (left == mMembers.end()) {
        return;
    }
    for (auto request = mInFlight.begin(); request != mInFlight.end();) {
        request = request->second.member == &left->second ? mInFlight.erase(request)
                                                          : std::next(request);
    }
    mLeft.push_back(std::move(left->second.connection));
    mMembers.erase(left);
    mChanged.notify_all();
}

/** On the member's thread, which the service holds up when it has too much to do. */
bool Sharing::ask(Connection* connection, uint32_t group, const hal::Method& request,
                  Parcel& args) {
    const uint32_t answer = answerTo(request);
    int32_t serial = 0;
    if (answer == 0 || args.size() < sizeof(serial)) {
        return false;
    }
    std::string bytes(reinterpret_cast<const char*>(args.data()), args.size());
    memcpy(&serial, bytes.data(), sizeof(serial));
    {
        Guard guard(mLock);
        const auto member = mMembers.find(connection);
        if (member == mMembers.end()) {
            return false;
        }
        const bool held = mChanged.wait_for(guard, CALLBACKS_WAIT, [this] { return mInstalled; });
        serial = group == ASK ? freeSerial(answer) : serial;
        const std::string refusal =
                held ? admit(member->second, {answer, serial}, bytes.size())
                     : "the callbacks cannot be taken back from another program";
        if (!refusal.empty()) {
            tell(member->second, REFUSED, refusal);
            return true;
        }
        Parcel accepted;
        accepted.write(serial);
        tell(member->second, ACCEPTED, accepted);
    }
    memcpy(bytes.data(), &serial, sizeof(serial));
    Parcel arguments(connection, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    Parcel reply;
    return mObject->onTransact(request.code, arguments, reply);
}

/** Enters a request; otherwise returns why not. */
std::string Sharing::admit(Member& member, Key request, size_t bytes) {
    if (member.requests >= MAX_IN_FLIGHT ||
        (member.requests > 0 && member.bytes + bytes > MAX_IN_FLIGHT_BYTES)) {
        return std::to_string(member.requests) + " requests with " + std::to_string(member.bytes) +
               " bytes are in flight";
    }
    if (!mInFlight.insert({request, {&member, bytes}}).second) {
        return "serial " + std::to_string(request.second) +
               " is in flight in another call of this method";
    }
    ++member.requests;
    member.bytes += bytes;
    return "";
}

int32_t Sharing::freeSerial(uint32_t answer) {
    do {
        mNextSerial = mNextSerial % 999999 + 1;
    } while (mInFlight.count({answer, mNextSerial}) != 0);
    return mNextSerial;
}

void Sharing::answer(uint32_t code, const Parcel& args) {
    int32_t serial = 0;  // behind the type, in front of the error
    if (args.size() >= sizeof(uint32_t) + sizeof(serial)) {
        memcpy(&serial, args.data() + sizeof(uint32_t), sizeof(serial));
    }
    const std::lock_guard<std::mutex> guard(mLock);
    Member* owner = nullptr;
    if (const auto request = mInFlight.find({code, serial}); request != mInFlight.end()) {
        owner = request->second.member;
        --owner->requests;
        owner->bytes -= request->second.bytes;
        mInFlight.erase(request);
    }
    for (const auto& [connection, member] : mMembers) {
        if (&member == owner || (member.interest & ALL_ANSWERS) != 0) {
            tell(member, ANSWER + code, args);
        }
    }
}

void Sharing::event(uint32_t code, const Parcel& args) {
    const std::lock_guard<std::mutex> guard(mLock);
    for (const auto& [connection, member] : mMembers) {
        if ((member.interest & EVENTS) != 0) {
            tell(member, EVENT + code, args);
        }
    }
}

void Sharing::displaced(uint64_t installation) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (installation != mInstallation) {
        return;
    }
    ++mInstallation;
    mInstalled = false;
    mInstallAt = Clock::now() + TAKE_BACK_WAIT;
    const bool cut = mService != nullptr && !mService->isOpen();
    tellAll(NOTE,
            (cut ? "the service cut the connection of the callbacks (" + mService->endReason() + ")"
                 : "another program took the callbacks") +
                    std::string("; they are taken back, events and answers may have been "
                                "missed"));
    mChanged.notify_all();
}

void Sharing::hold() {
    Guard guard(mLock);
    while (true) {
        if (mMembers.empty() && mService != nullptr) {
            release(guard);
        } else if (!mLeft.empty()) {
            closeLeft(guard);  // the last one ends when the callbacks are free
        } else if (mMembers.empty() || mInstalled) {
            mChanged.wait(guard);
        } else if (Clock::now() < mInstallAt) {
            mChanged.wait_until(guard, mInstallAt);
        } else {
            install(guard);
        }
    }
}

/** On a connection of its own, which ends with the installation. */
void Sharing::install(Guard& guard) {
    const uint64_t number = ++mInstallation;
    std::shared_ptr<Connection> former = std::exchange(mService, nullptr);
    guard.unlock();
    if (former != nullptr) {
        former->close("the callbacks are installed anew");
        former = nullptr;
    }
    std::string trouble;
    const auto service = Connection::connect(mPath, &trouble);
    if (service != nullptr) {
        Parcel arguments(service.get());
        for (const bool answers : {true, false}) {
            arguments.write(service->exportObject(new Callback(*this, answers, number)));
        }
        Parcel reply;
        const uint32_t setCallback = IModem_table.methods[0].code;
        const auto sent = service->transact(hal::SERVICE_TARGET, setCallback, arguments, &reply);
        trouble = sent.isOk() ? "" : sent.description();
    }
    guard.lock();
    mService = service;
    if (number != mInstallation) {
        return;  // another program took the callbacks meanwhile
    }
    mInstalled = trouble.empty();
    if (mInstalled) {
        for (const auto& [connection, member] : mMembers) {
            tell(member, READY, Parcel());
        }
    } else {
        ++mInstallation;
        mInstallAt = Clock::now() + TAKE_BACK_WAIT;
        tellAll(NOTE, "the callbacks cannot be installed: " + trouble);
    }
    mChanged.notify_all();
}

void Sharing::release(Guard& guard) {
    ++mInstallation;
    mInstalled = false;
    mInstallAt = Clock::now();
    std::shared_ptr<Connection> service = std::exchange(mService, nullptr);
    guard.unlock();
    service->close("no modemctl is left");
    service = nullptr;
    guard.lock();
}

/** Without the lock, which the ends of connections take. */
void Sharing::closeLeft(Guard& guard) {
    auto left = std::exchange(mLeft, {});
    guard.unlock();
    for (const auto& connection : left) {
        connection->close("");
    }
    left.clear();
    guard.lock();
}

void Sharing::tell(const Member& member, uint32_t code, const Parcel& args) {
    Parcel copy;
    copy.writeBytes(args.data(), args.size());
    // A member that has gone or was cut is seen by its closed connection.
    (void)member.connection->transact(member.object, code, copy).isOk();
}

void Sharing::tell(const Member& member, uint32_t code, const std::string& text) {
    Parcel args;
    args.writeString(text);
    tell(member, code, args);
}

void Sharing::tellAll(uint32_t code, const std::string& text) {
    for (const auto& [connection, member] : mMembers) {
        tell(member, code, text);
    }
}

}  // namespace

void share(const hal::Registration& service) {
    const android::sp<Sharing> sharing = new Sharing(service);
    if (hal::publish(DESCRIPTOR, service.name, sharing) != android::OK) {
        throw std::runtime_error("cannot share " + service.name +
                                 " among modemctl: " + hal::registrations().back().reason);
    }
    std::thread([sharing] { sharing->hold(); }).detach();
}

}  // namespace sharing
