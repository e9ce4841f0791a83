#include "tests/system/DirectSession.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "tools/modemctl/Api.h"
#include "tools/modemctl/Failure.h"
#include "tools/modemctl/Values.h"

/** Arrivals in their order, from any thread. */
class Session::Inbox {
public:
    void put(Arrival arrival) {
        const std::lock_guard<std::mutex> guard(mLock);
        mArrivals.push_back(std::move(arrival));
        mArrived.notify_one();
    }

    std::optional<Arrival> take(Clock::time_point deadline) {
        std::unique_lock<std::mutex> guard(mLock);
        if (!mArrived.wait_until(guard, deadline, [this] { return !mArrivals.empty(); })) {
            return std::nullopt;
        }
        Arrival arrival = std::move(mArrivals.front());
        mArrivals.pop_front();
        return arrival;
    }

    /** The installation whose end is worth a word. */
    std::atomic<uint64_t> installation{0};

private:
    std::mutex mLock;
    std::condition_variable mArrived;
    std::deque<Arrival> mArrivals;
};

/** One callback object of either kind; the service lets it go for another one. */
class Session::Callback : public hal::Stub {
public:
    Callback(std::shared_ptr<Inbox> inbox, Arrival::Kind kind, uint64_t installation)
        : mInbox(std::move(inbox)), mKind(kind), mInstallation(installation) {}

    ~Callback() override {
        if (mKind == Arrival::EVENT && mInbox->installation == mInstallation) {
            mInbox->put({Arrival::DISPLACED, nullptr, {}});
        }
    }

    bool onTransact(uint32_t code, hal::Parcel& args, hal::Parcel&) override {
        const hal::Interface& table = mKind == Arrival::ANSWER ? api::ANSWERS : api::EVENTS;
        if (code < 1 || code > table.methodCount) {
            return false;
        }
        Arrival arrival{mKind, &table.methods[code - 1], {}};
        if (!values::decode(args, *arrival.method, arrival.arguments)) {
            return false;
        }
        mInbox->put(std::move(arrival));
        return true;
    }

private:
    const std::shared_ptr<Inbox> mInbox;
    const Arrival::Kind mKind;
    const uint64_t mInstallation;
};

Session::Session(int instance) : mInbox(std::make_shared<Inbox>()) {
    const std::string name = "instance" + std::to_string(instance);
    const std::string path = hal::servicePath(api::REQUESTS.descriptor, name);
    std::string reason;
    mConnection = hal::Connection::connect(path, &reason);
    if (mConnection == nullptr) {
        throw Failure(NO_SERVICE, "no service: " + reason);
    }
    mConnection->onClosed([inbox = mInbox] { inbox->put({Arrival::CLOSED, nullptr, {}}); });
}

Session::~Session() {
    mConnection->close("session over");
}

void Session::install() {
    mInbox->installation = ++mInstallation;
    // The call waits for the service, and a service that hangs would not let go of this thread.
    std::thread([inbox = mInbox, connection = mConnection, number = mInstallation] {
        hal::Parcel arguments(connection.get());
        for (const Arrival::Kind kind : {Arrival::ANSWER, Arrival::EVENT}) {
            arguments.write(connection->exportObject(new Callback(inbox, kind, number)));
        }
        hal::Parcel reply;
        const uint32_t code = api::REQUESTS.methods[0].code;  // setCallback
        const bool sent = connection->transact(hal::SERVICE_TARGET, code, arguments, &reply).isOk();
        inbox->put({sent ? Arrival::INSTALLED : Arrival::CLOSED, nullptr, {}});
    }).detach();
}

void Session::send(const hal::Method& request, hal::Parcel& arguments) {
    const auto sent = mConnection->transact(hal::SERVICE_TARGET, request.code, arguments);
    if (!sent.isOk()) {
        throw Failure(NO_SERVICE, "the service has gone: " + sent.description());
    }
}

std::optional<Arrival> Session::next(Clock::time_point deadline) {
    std::optional<Arrival> arrival = mInbox->take(deadline);
    if (arrival && arrival->kind == Arrival::CLOSED) {
        throw Failure(NO_SERVICE, "the service has gone: " + mConnection->endReason());
    }
    return arrival;
}
