#include "Sharing.h"

#include <hidl/Transport.h>
#include <vendor/lyr/modem/1.0/table.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

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

struct Text : Parcel {
    explicit Text(const std::string& text) { writeString(text); }
};

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
    };

    bool join(Connection* connection, Parcel& args);
    void leave(const Connection* connection);
    bool ask(Connection* connection, const hal::Method& request, Parcel& args);
    bool admit(Member& member, Key request);

    void install(Guard& guard);
    /** Leaves the connection of the callbacks to `closeLeft`, in front of the members. */
    void dropService() {
        if (mService != nullptr) {
            mLeft.insert(mLeft.begin(), std::exchange(mService, nullptr));
        }
    }

    void closeLeft(Guard& guard);

    static void tell(const Member& member, uint32_t code, const Parcel& args) {
        Parcel copy;
        copy.writeBytes(args.data(), args.size());
        // A member that has gone or was cut is seen by its closed connection.
        (void)member.connection->transact(member.object, code, copy).isOk();
    }

    void tellAll(uint32_t code, const Parcel& args) {
        for (const auto& [connection, member] : mMembers) {
            tell(member, code, args);
        }
    }

    const std::string mPath;
    const android::sp<hal::Stub> mObject;  ///< the service itself

    std::mutex mLock;  ///< guards what follows
    std::condition_variable mChanged;
    std::map<const Connection*, Member> mMembers;
    std::map<Key, Member*> mInFlight;
    std::vector<std::shared_ptr<Connection>> mLeft;  ///< to be closed
    std::shared_ptr<Connection> mService;            ///< which the callbacks come over
    uint64_t mInstallation = 0;                      ///< number of the latest one
    Holder mHolder = NOBODY;
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
    if (code == LEAVE) {
        leave(args.connection());
        return true;
    }
    if (code == HOLDS) {
        const std::lock_guard<std::mutex> guard(mLock);
        reply.write(static_cast<uint32_t>(mHolder));
        return true;
    }
    if (code == JOIN) {
        return join(args.connection(), args);
    }
    const uint32_t method = code & ~GROUP;
    return method >= 1 && method <= IModem_table.methodCount && (code & GROUP) == ASK &&
           ask(args.connection(), IModem_table.methods[method - 1], args);
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
        if (mHolder == MEMBERS) {
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
        request = request->second == &left->second ? mInFlight.erase(request) : std::next(request);
    }
    mLeft.push_back(std::move(left->second.connection));
    mMembers.erase(left);
    mChanged.notify_all();
}

/** On the member's thread, which the service holds up when it has too much to do. */
bool Sharing::ask(Connection* connection, const hal::Method& request, Parcel& args) {
    const uint32_t answer = answerTo(request);
    Parcel copy(connection, args.data(), args.size());
    int32_t serial = 0;
    if (answer == 0 || !copy.read(&serial)) {
        return false;
    }
    {
        Guard guard(mLock);
        const auto member = mMembers.find(connection);
        if (member == mMembers.end()) {
            return false;
        }
        mChanged.wait_for(guard, CALLBACKS_WAIT, [this] { return mHolder == MEMBERS; });
        if (!admit(member->second, {answer, serial})) {
            return true;
        }
    }
    Parcel reply;
    return mObject->onTransact(request.code, args, reply);
}

/** Enters a request, or tells the member why not. */
bool Sharing::admit(Member& member, Key request) {
    if (member.requests >= MAX_IN_FLIGHT) {
        tell(member, REFUSED, Text(std::to_string(MAX_IN_FLIGHT) + " requests are in flight"));
        return false;
    }
    if (!mInFlight.insert({request, &member}).second) {
        tell(member, REFUSED,
             Text("serial " + std::to_string(request.second) +
                  " is in flight in another call of this method"));
        return false;
    }
    ++member.requests;
    return true;
}

void Sharing::answer(uint32_t code, const Parcel& args) {
    uint32_t type = 0;
    int32_t serial = 0;
    Parcel copy(nullptr, args.data(), args.size());
    (void)(copy.read(&type) && copy.read(&serial));
    const std::lock_guard<std::mutex> guard(mLock);
    Member* owner = nullptr;
    if (const auto request = mInFlight.find({code, serial}); request != mInFlight.end()) {
        owner = request->second;
        --owner->requests;
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
    mHolder = ANOTHER;
    mInstallAt = Clock::now() + TAKE_BACK_WAIT;
    tellAll(NOTE, Text("another program took the callbacks; they are taken back, events and "
                       "answers may have been missed"));
    dropService();
    mChanged.notify_all();
}

void Sharing::hold() {
    Guard guard(mLock);
    while (true) {
        if (mMembers.empty() && mService != nullptr) {
            ++mInstallation;
            mHolder = NOBODY;
            mInstallAt = Clock::now();
            dropService();
        } else if (!mLeft.empty()) {
            closeLeft(guard);  // the last one ends when the callbacks are free
        } else if (mMembers.empty() || mHolder == MEMBERS) {
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
    guard.unlock();
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
    if (number != mInstallation) {  // another program took the callbacks meanwhile
        dropService();
        return;
    }
    if (trouble.empty()) {
        mHolder = MEMBERS;
        tellAll(READY, Parcel());
    } else {
        ++mInstallation;
        mInstallAt = Clock::now() + TAKE_BACK_WAIT;
        dropService();
        tellAll(NOTE, Text("the callbacks cannot be installed: " + trouble));
    }
    mChanged.notify_all();
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

}  // namespace

void start() {
    for (const hal::Registration& service : hal::registrations()) {
        if (service.descriptor == IModem_table.descriptor) {
            const android::sp<Sharing> sharing = new Sharing(service);
            if (hal::publish(DESCRIPTOR, service.name, sharing) != android::OK) {
                throw std::runtime_error("cannot share " + service.name +
                                         " among modemctl: " + hal::registrations().back().reason);
            }
            std::thread([sharing] { sharing->hold(); }).detach();
        }
    }
}

}  // namespace sharing
