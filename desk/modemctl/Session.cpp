#include "Session.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <random>
#include <thread>

#include "Api.h"
#include "Failure.h"
#include "Values.h"
#include "host/Sharing.h"
#include "runtime/UnixSocket.h"

using namespace std::chrono_literals;

namespace {

constexpr auto ATTEMPT_WAIT = 20ms;

}  // namespace

/** Arrivals in their order. A full one holds up the host, which cuts those that do not read. */
class Session::Inbox {
public:
    static constexpr size_t ROOM = 4096;  ///< arrivals

    void put(Arrival arrival) {
        std::unique_lock<std::mutex> guard(mLock);
        mTaken.wait(guard, [this] { return mArrivals.size() < ROOM || mOver; });
        mArrivals.push_back(std::move(arrival));
        mArrived.notify_one();
    }

    std::optional<Arrival> take(Clock::time_point deadline) {
        std::unique_lock<std::mutex> guard(mLock);
        const auto filled = [this] { return !mArrivals.empty() || mClosed; };
        if (!mArrived.wait_until(guard, deadline, filled) || mArrivals.empty()) {
            return std::nullopt;
        }
        Arrival arrival = std::move(mArrivals.front());
        mArrivals.pop_front();
        mTaken.notify_one();
        return arrival;
    }

    void close() {
        const std::lock_guard<std::mutex> guard(mLock);
        mClosed = true;
        mArrived.notify_all();
    }

    /** Closed, and all that came was taken. */
    bool isOver() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mClosed && mArrivals.empty();
    }

    /** Ends the wait for room, since nobody takes any more, and waits for the end. */
    void leave(std::chrono::milliseconds patience) {
        std::unique_lock<std::mutex> guard(mLock);
        mOver = true;
        mTaken.notify_all();
        mArrived.wait_for(guard, patience, [this] { return mClosed; });
    }

private:
    std::mutex mLock;
    std::condition_variable mArrived;
    std::condition_variable mTaken;
    std::deque<Arrival> mArrivals;
    bool mClosed = false;
    bool mOver = false;
};

/** What the host calls. */
class Session::Member : public hal::Stub {
public:
    explicit Member(std::shared_ptr<Inbox> inbox) : mInbox(std::move(inbox)) {}

    bool onTransact(uint32_t code, hal::Parcel& args, hal::Parcel&) override {
        const uint32_t group = code & sharing::GROUP;
        return group == 0 ? takeWord(code, args) : takeCall(group, code & ~sharing::GROUP, args);
    }

private:
    bool takeWord(uint32_t code, hal::Parcel& args) {
        constexpr Arrival::Kind KINDS[] = {Arrival::READY, Arrival::REFUSED, Arrival::NOTE};
        if (code < sharing::READY || code > sharing::NOTE) {
            return false;
        }
        Arrival arrival{KINDS[code - sharing::READY], nullptr, {}, {}};
        if (code != sharing::READY && !args.readString(&arrival.text)) {
            return false;
        }
        mInbox->put(std::move(arrival));
        return true;
    }

    bool takeCall(uint32_t group, uint32_t code, hal::Parcel& args) {
        const bool answer = group == sharing::ANSWER;
        const hal::Interface& table = answer ? api::ANSWERS : api::EVENTS;
        if ((!answer && group != sharing::EVENT) || code < 1 || code > table.methodCount) {
            return false;
        }
        Arrival arrival{
                answer ? Arrival::ANSWER : Arrival::EVENT, &table.methods[code - 1], {}, {}};
        if (!values::decode(args, *arrival.method, arrival.arguments)) {
            return false;
        }
        mInbox->put(std::move(arrival));
        return true;
    }

    const std::shared_ptr<Inbox> mInbox;
};

Session::Session(int instance, uint32_t interest, Clock::time_point patience)
    : mInstance(instance), mInterest(interest), mPatience(patience) {
}

Session::~Session() {
    if (mConnection != nullptr) {
        hal::Parcel none;
        if (mConnection->transact(hal::SERVICE_TARGET, sharing::LEAVE, none).isOk()) {
            mInbox->leave(mReady ? 1s : 0s);
        }
        mConnection->close("session over");
    }
}

std::optional<Arrival> Session::connect(Clock::time_point deadline) {
    const std::string path = sharingPath(mInstance);
    if (const auto connection = hal::Connection::connect(path, nullptr)) {
        join(connection);
        return std::nullopt;
    }
    const Peer peer = peerAt(path);
    const std::string text = mWasReady ? "the service has gone" : "no service: " + peer.reason;
    if (!peer.isAbsence || Clock::now() >= mPatience) {
        throw Failure(NO_SERVICE, text + howToStart(mInstance));
    }
    if (!std::exchange(mNoted, true)) {
        return Arrival{Arrival::NOTE, nullptr, {}, text + "; waiting for it"};
    }
    std::this_thread::sleep_until(std::min(deadline, Clock::now() + ATTEMPT_WAIT));
    return std::nullopt;
}

void Session::join(const std::shared_ptr<hal::Connection>& connection) {
    mConnection = connection;
    mInbox = std::make_shared<Inbox>();
    connection->onClosed([inbox = mInbox] { inbox->close(); });
    hal::Parcel arguments(connection.get());
    arguments.write(mInterest);
    arguments.write(connection->exportObject(new Member(mInbox)));
    // A failure means that the host has gone, which `next` finds out.
    (void)connection->transact(hal::SERVICE_TARGET, sharing::JOIN, arguments).isOk();
}

/** After the end of a connection: what there is to say about it. */
std::optional<Arrival> Session::ended() {
    const std::string reason = mConnection->endReason();
    mConnection = nullptr;
    if (std::exchange(mReady, false)) {
        mNoted = false;
        return Arrival{Arrival::LOST, nullptr, {}, reason};
    }
    std::this_thread::sleep_for(ATTEMPT_WAIT);
    const bool refused = reason.rfind("refused", 0) == 0;
    return refused && !std::exchange(mNoted, true)
                   ? std::optional(Arrival{Arrival::NOTE, nullptr, {}, reason + "; waiting"})
                   : std::nullopt;
}

void Session::ask(const hal::Method& request, hal::Parcel& arguments) {
    hal::Parcel copy;
    copy.writeBytes(arguments.data(), arguments.size());
    (void)mConnection->transact(hal::SERVICE_TARGET, sharing::ASK + request.code, copy).isOk();
}

int32_t Session::freshSerial() {
    std::random_device random;
    return std::uniform_int_distribution<int32_t>(1, 99999999)(random);
}

std::optional<Arrival> Session::next(Clock::time_point deadline) {
    std::optional<Arrival> arrival;
    do {
        if (mConnection == nullptr) {
            arrival = connect(deadline);
        } else if ((arrival = mInbox->take(deadline))) {
            mReady |= arrival->kind == Arrival::READY;
            mWasReady |= mReady;
        } else if (mInbox->isOver()) {
            arrival = ended();
        }
    } while (!arrival && Clock::now() < deadline);
    return arrival;
}

std::string sharingPath(int instance) {
    return hal::servicePath(sharing::DESCRIPTOR, sharing::name(instance));
}

Peer peerAt(const std::string& path) {
    try {
        const auto socket = runtime::connectTo(path, 1s);
        return {runtime::ownUsersProcess(socket.get()), path + ": it does not respond", true};
    } catch (const std::system_error& error) {
        const std::error_code code = error.code();
        const bool isAbsence = code == std::errc::no_such_file_or_directory ||
                               code == std::errc::connection_refused;
        return {0, error.what(), isAbsence};
    }
}
