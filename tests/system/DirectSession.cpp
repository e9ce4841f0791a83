#include "DirectSession.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "desk/modemctl/Api.h"
#include "desk/modemctl/Failure.h"
#include "desk/modemctl/Values.h"

/** Keeps arrivals in their order for `take`, or gives them to the sink at once; any thread. */
class DirectSession::Inbox {
public:
    explicit Inbox(Sink sink) : mSink(std::move(sink)) {}

    void put(Arrival arrival) {
        if (mSink) {
            mSink(arrival);
            return;
        }
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

    /** Number of the latest installation: only when that one is displaced, it is told. */
    std::atomic<uint64_t> installation{0};

private:
    const Sink mSink;
    std::mutex mLock;
    std::condition_variable mArrived;
    std::deque<Arrival> mArrivals;
};

/** One of the two callback objects; the service releases it when others are installed. */
class DirectSession::Callback : public hal::Stub {
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

DirectSession::DirectSession(int instance, Sink sink)
    : mInbox(std::make_shared<Inbox>(std::move(sink))) {
    const std::string name = "instance" + std::to_string(instance);
    const std::string path = hal::servicePath(api::REQUESTS.descriptor, name);
    std::string reason;
    mConnection = hal::Connection::connect(path, &reason);
    if (mConnection == nullptr) {
        throw Failure(NO_SERVICE, "no service: " + reason);
    }
    mConnection->onClosed([inbox = mInbox] { inbox->put({Arrival::CLOSED, nullptr, {}}); });
}

DirectSession::~DirectSession() {
    mConnection->close("session over");
}

void DirectSession::install() {
    mInbox->installation = ++mInstallation;
    hal::Parcel arguments(mConnection.get());
    for (const Arrival::Kind kind : {Arrival::ANSWER, Arrival::EVENT}) {
        arguments.write(mConnection->exportObject(new Callback(mInbox, kind, mInstallation)));
    }
    hal::Parcel reply;
    call(api::REQUESTS.methods[0], arguments, &reply);  // setCallback
}

void DirectSession::send(const hal::Method& request, hal::Parcel& arguments) {
    call(request, arguments, nullptr);
}

void DirectSession::call(const hal::Method& method, hal::Parcel& arguments, hal::Parcel* reply) {
    const auto sent = mConnection->transact(hal::SERVICE_TARGET, method.code, arguments, reply);
    if (!sent.isOk()) {
        throw Failure(NO_SERVICE, "the service has gone: " + sent.description());
    }
}

std::optional<Arrival> DirectSession::next(Clock::time_point deadline) {
    std::optional<Arrival> arrival = mInbox->take(deadline);
    if (arrival && arrival->kind == Arrival::CLOSED) {
        throw Failure(NO_SERVICE, "the service has gone: " + mConnection->endReason());
    }
    return arrival;
}
