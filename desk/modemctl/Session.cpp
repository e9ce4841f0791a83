#include "Session.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "Api.h"
#include "Failure.h"
#include "Relay.h"
#include "Values.h"
#include "runtime/RuntimeDir.h"
#include "runtime/UnixSocket.h"

using namespace std::chrono_literals;

namespace {

constexpr auto ATTEMPT_WAIT = 20ms;
constexpr auto START_ATTEMPT_WAIT = 500us;

/** Whoever holds the start lock has so long to start the relay; then others start one as well. */
constexpr auto START_WAIT = 500ms;

/** A relay that was started listens by then, also on a busy machine. */
constexpr auto LISTEN_WAIT = 2s;

/** The lock for starting the relay, held until that listens; -1 when another process has it. */
runtime::UniqueFd tryStartLock(int instance) {
    const std::string path = runtime::directory() + "/modemctl." + std::to_string(instance);
    runtime::UniqueFd lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    return flock(lock.get(), LOCK_EX | LOCK_NB) == 0 ? std::move(lock) : runtime::UniqueFd();
}

}  // namespace

/** Arrivals in their order. A full one holds up the relay, which cuts those that do not read. */
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

    /** Ends the wait for room, since nobody takes any more, and waits until the relay closed. */
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

/** What the relay calls. */
class Session::Member : public hal::Stub {
public:
    explicit Member(std::shared_ptr<Inbox> inbox) : mInbox(std::move(inbox)) {}

    bool onTransact(uint32_t code, hal::Parcel& args, hal::Parcel&) override {
        const uint32_t group = code & relay::GROUP;
        const bool known =
                group == 0 ? takeWord(code, args) : takeCall(group, code & ~relay::GROUP, args);
        return known;
    }

private:
    bool takeWord(uint32_t code, hal::Parcel& args) {
        constexpr Arrival::Kind KINDS[] = {Arrival::READY, Arrival::ACCEPTED, Arrival::REFUSED,
                                           Arrival::NOTE, Arrival::GONE};
        if (code < relay::READY || code > relay::GONE) {
            return false;
        }
        Arrival arrival{KINDS[code - relay::READY], nullptr, {}, 0, {}};
        const bool number = code <= relay::ACCEPTED;
        if (!(number ? args.read(&arrival.serial) : args.readString(&arrival.text))) {
            return false;
        }
        mInbox->put(std::move(arrival));
        return true;
    }

    bool takeCall(uint32_t group, uint32_t code, hal::Parcel& args) {
        const bool answer = group == relay::ANSWER;
        const hal::Interface& table = answer ? api::ANSWERS : api::EVENTS;
        if ((!answer && group != relay::EVENT) || code < 1 || code > table.methodCount) {
            return false;
        }
        Arrival arrival{
                answer ? Arrival::ANSWER : Arrival::EVENT, &table.methods[code - 1], {}, 0, {}};
        if (!values::decode(args, *arrival.method, arrival.arguments)) {
            return false;
        }
        mInbox->put(std::move(arrival));
        return true;
    }

    const std::shared_ptr<Inbox> mInbox;
};

Session::Session(int instance, uint32_t interest)
    : mInstance(instance),
      mInterest(interest),
      mNextAttempt(Clock::now()),
      mAloneSince(Clock::now()) {
    signal(SIGCHLD, SIG_IGN);  // a relay that this process started leaves no zombie
}

Session::~Session() {
    if (mConnection != nullptr) {
        hal::Parcel none;
        if (mConnection->transact(hal::SERVICE_TARGET, relay::LEAVE, none).isOk()) {
            mInbox->leave(mReady ? 1s : 0s);
        }
        mConnection->close("session over");
    }
}

void Session::connect() {
    const std::string path = hal::servicePath(relay::descriptor(), relay::name(mInstance));
    auto connection = hal::Connection::connect(path, nullptr);
    if (connection == nullptr) {
        const runtime::UniqueFd lock = tryStartLock(mInstance);
        if (lock.get() >= 0 || Clock::now() - mAloneSince > START_WAIT) {
            // Another one may have started it meanwhile, and let go of the lock.
            connection = hal::Connection::connect(path, nullptr);
            if (connection == nullptr) {
                relay::start(mInstance);
            }
            const auto deadline = Clock::now() + LISTEN_WAIT;
            while (connection == nullptr && Clock::now() < deadline) {
                std::this_thread::sleep_for(START_ATTEMPT_WAIT);
                connection = hal::Connection::connect(path, nullptr);
            }
            mAloneSince = Clock::now();
        }
    }
    if (connection != nullptr) {
        join(connection);
    } else {
        mNextAttempt = Clock::now() + ATTEMPT_WAIT;
    }
}

void Session::join(const std::shared_ptr<hal::Connection>& connection) {
    mConnection = connection;
    mInbox = std::make_shared<Inbox>();
    mReady = false;
    connection->onClosed([inbox = mInbox] { inbox->close(); });
    hal::Parcel arguments(connection.get());
    arguments.write(mInterest);
    arguments.write(connection->exportObject(new Member(mInbox)));
    send(relay::JOIN, arguments);
}

void Session::send(uint32_t code, hal::Parcel& arguments) {
    // A failure means that the relay has gone, which `next` finds out.
    (void)mConnection->transact(hal::SERVICE_TARGET, code, arguments).isOk();
}

void Session::ask(const hal::Method& request, std::optional<int32_t> serial,
                  hal::Parcel& arguments) {
    hal::Parcel copy;
    copy.writeBytes(arguments.data(), arguments.size());
    send((serial ? relay::ASK_WITH_SERIAL : relay::ASK) + request.code, copy);
}

void Session::await(const hal::Method& request, int32_t serial) {
    hal::Parcel arguments;
    arguments.write(serial);
    send(relay::AWAIT + request.code, arguments);
}

std::string Session::trouble() const {
    if (mConnection == nullptr || mReady) {
        return mTrouble;
    }
    return "process " + std::to_string(relay::holder(mInstance)) +
           ", which holds the callbacks for all modemctl, or the service does not respond";
}

std::optional<Arrival> Session::next(Clock::time_point deadline) {
    do {
        if (mConnection == nullptr && Clock::now() >= mNextAttempt) {
            connect();
        }
        if (mConnection == nullptr) {
            std::this_thread::sleep_until(std::min(deadline, mNextAttempt));
            continue;
        }
        std::optional<Arrival> arrival = mInbox->take(deadline);
        if (arrival && arrival->kind == Arrival::GONE) {
            throw Failure(NO_SERVICE, arrival->text);
        }
        if (arrival) {
            mReady |= arrival->kind == Arrival::READY;
            return arrival;
        }
        if (mInbox->isOver()) {
            mTrouble = mConnection->endReason();
            mConnection = nullptr;
            mNextAttempt = Clock::now() + (mReady ? 0ms : ATTEMPT_WAIT);
            mAloneSince = Clock::now();
            if (std::exchange(mReady, false)) {
                return Arrival{Arrival::LOST, nullptr, {}, 0, mTrouble};
            }
        }
    } while (Clock::now() < deadline);
    return std::nullopt;
}
