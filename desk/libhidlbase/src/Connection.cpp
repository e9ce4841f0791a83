#include <fcntl.h>
#include <hidl/Transport.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <system_error>
#include <thread>

#include "Incoming.h"
#include "Outgoing.h"

using android::sp;
using android::hardware::Return;
using android::hardware::Status;

namespace hal {

namespace {

// Target 0 is the connection itself.
constexpr uint32_t CONTROL_TARGET = 0;
constexpr uint32_t CODE_REPLY = 1;    // to the call whose id it carries
constexpr uint32_t CODE_RELEASE = 2;  // argument: id of an object that was exported to the sender
constexpr uint32_t CODE_REFUSED = 3;  // argument: why the service does not serve this client

// Calls may wait in the buffer while the thread that would serve them waits for a reply.
constexpr size_t MAX_WAITING_SIZE = 4 * MAX_MESSAGE_SIZE;

/** A client whose call fails waits so long for its reader thread to find out why. */
constexpr auto REASON_LIMIT = std::chrono::milliseconds(1000);

// The connection whose reader thread this is.
thread_local const Connection* tServing = nullptr;

/** Writes the header of what stands in a parcel; gives the size of the whole. */
size_t frameMessage(uint32_t target, uint32_t code, uint32_t call, Parcel& args) {
    const size_t size = Parcel::HEADER_SIZE + args.size();
    const uint32_t header[] = {static_cast<uint32_t>(size - Incoming::SIZE_FIELD), target, code,
                               call};
    static_assert(sizeof(header) == Parcel::HEADER_SIZE);
    memcpy(args.frame(), header, sizeof(header));
    return size;
}

bool canGo(const std::vector<int>& descriptors) {
    return descriptors.size() <= MAX_DESCRIPTORS &&
           std::all_of(descriptors.begin(), descriptors.end(),
                       [](int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; });
}

}  // namespace

bool servesClient() {
    return tServing != nullptr && tServing->isServer();
}

Connection::Connection(int fd)
    : mOutgoing(std::make_shared<Outgoing>(fd)), mIncoming(std::make_unique<Incoming>(*mOutgoing)) {
}

std::shared_ptr<Connection> Connection::connect(const std::string& path, std::string* error) {
    try {
        const auto connection =
                std::make_shared<Connection>(runtime::connectTo(path, stallLimit()).release());
        connection->mToService = true;
        connection->start();
        return connection;
    } catch (const std::system_error& failure) {
        if (error != nullptr) {
            *error = failure.what();
        }
        return nullptr;
    }
}

void Connection::refuse(int socket, const std::string& reason) {
    Parcel args;
    args.writeString(reason);
    const size_t size = frameMessage(CONTROL_TARGET, CODE_REFUSED, 0, args);
    // A fresh socket has room for it; a peer that is gone needs no reason.
    (void)!::send(socket, args.frame(), size, MSG_NOSIGNAL | MSG_DONTWAIT);
}

Connection::~Connection() = default;

void Connection::start(std::function<void()> ended, bool expectCall) {
    mThreadEnded = std::move(ended);
    if (expectCall) {
        mIncoming->expect();
    }
    // Detached, since the last to let go of the connection may be that thread itself.
    std::thread([self = shared_from_this()] { self->run(); }).detach();
}

uint32_t Connection::exportObject(const sp<Stub>& object) {
    std::lock_guard lock(mLock);
    const uint32_t id = mNextExport++;
    if (!mEnded) {
        mExports.emplace(id, object);
    }
    return id;
}

void Connection::onClosed(std::function<void()> callback) {
    {
        std::lock_guard lock(mLock);
        if (!mEnded) {
            mOnClosed.push_back(std::move(callback));
            return;
        }
    }
    callback();
}

void Connection::closeWhenUnused() {
    std::lock_guard lock(mLock);
    mCloseWhenUnused = true;
}

void Connection::closeIfUnused() {
    {
        std::lock_guard lock(mLock);
        if (!mCloseWhenUnused || mProxies != 0 || !mExports.empty()) {
            return;
        }
    }
    mOutgoing->finish("no longer used");
}

bool Connection::holdProxy() {
    std::lock_guard lock(mLock);
    if (mProxies == MAX_PROXIES) {
        return false;
    }
    ++mProxies;
    return true;
}

void Connection::releaseProxy(uint32_t target) {
    {
        std::lock_guard lock(mLock);
        --mProxies;
    }
    // Where it does not get through, the connection is over and so is all that it let exist.
    Parcel args;
    args.write(target);
    const size_t size = frameMessage(CONTROL_TARGET, CODE_RELEASE, 0, args);
    (void)mOutgoing->push(args.frame(), size, {});
    closeIfUnused();
}

int Connection::takeDescriptor() {
    return mIncoming->takeDescriptor();
}

// Calling.

Return<void> Connection::transact(uint32_t target, uint32_t code, Parcel& args, Parcel* reply) {
    if (reply == nullptr) {
        return send(target, code, 0, args);
    }
    Waiter waiter{reply};
    std::unique_lock lock(mLock);
    const uint32_t call = mNextCall++;
    mWaiters.emplace(call, &waiter);
    lock.unlock();
    const Status sent = send(target, code, call, args);
    if (sent.isOk() && tServing == this) {
        readUntil(waiter);
    }
    lock.lock();
    if (sent.isOk() && tServing != this) {
        mReplied.wait(lock, [&] { return waiter.done || mEnded; });
    }
    mWaiters.erase(call);
    lock.unlock();
    return !sent.isOk() ? sent : waiter.done ? Status::ok() : deadObject();
}

Status Connection::send(uint32_t target, uint32_t code, uint32_t call, Parcel& args) {
    const size_t size = frameMessage(target, code, call, args);
    if (size > MAX_MESSAGE_SIZE) {
        return Status::fromStatusT(android::FAILED_TRANSACTION,
                                   "dropped, its receiver gets nothing: a message of " +
                                           std::to_string(size) +
                                           " bytes is longer than the transport's limit of " +
                                           std::to_string(MAX_MESSAGE_SIZE));
    }
    if (!canGo(args.descriptors())) {
        return Status::fromStatusT(android::FAILED_TRANSACTION,
                                   "not sent: descriptors that are not open, or more than " +
                                           std::to_string(MAX_DESCRIPTORS));
    }
    if (!mToService) {
        mOutgoing->waitForPeer(MAX_UNTAKEN);
    } else if (tServing == nullptr) {
        mOutgoing->waitForRoom(MAX_OUTGOING / 2);
    }
    return mOutgoing->push(args.frame(), size, args.descriptors()) ? Status::ok() : deadObject();
}

bool Connection::isOpen() const {
    return mOutgoing->isOpen();
}

void Connection::close(const std::string& reason) {
    mOutgoing->cut(reason);
}

std::string Connection::cutReason() const {
    return mOutgoing->isCut() ? mOutgoing->reason() : "";
}

std::string Connection::endReason() const {
    return mOutgoing->reason();
}

/** With the reason that the service gave when it closed the connection, if it gave one. */
Status Connection::deadObject() {
    if (mToService && tServing == nullptr) {
        std::unique_lock lock(mLock);
        mReplied.wait_for(lock, REASON_LIMIT, [this] { return mEnded; });
    }
    return Status::fromStatusT(android::DEAD_OBJECT, mOutgoing->reason());
}

// The reader thread.

void Connection::run() {
    tServing = this;
    Message message{};
    while (mIncoming->receive(0, &message)) {
        mIncoming->pass(message);
        if (!serve(message)) {
            close("call of target " + std::to_string(message.target) + ", code " +
                  std::to_string(message.code) + " with " + std::to_string(message.size) +
                  " bytes of arguments cannot be understood");
        } else if (mIncoming->hasStrayDescriptors()) {
            close("descriptors that no call takes");
        }
    }
    end();
    tServing = nullptr;
}

void Connection::end() {
    mOutgoing->stop("peer closed the connection");
    decltype(mExports) exports;
    decltype(mOnClosed) callbacks;
    {
        std::lock_guard lock(mLock);
        mEnded = true;
        exports.swap(mExports);
        callbacks.swap(mOnClosed);
    }
    mReplied.notify_all();
    exports.clear();
    for (const auto& callback : callbacks) {
        callback();
    }
    if (const auto ended = std::exchange(mThreadEnded, nullptr)) {
        ended();
    }
}

bool Connection::serve(const Message& message) {
    if (message.target != CONTROL_TARGET) {
        return serveCall(message);
    }
    return message.code == CODE_REPLY     ? takeReply(message)
           : message.code == CODE_RELEASE ? serveRelease(message)
                                          : message.code == CODE_REFUSED && takeRefusal(message);
}

bool Connection::serveCall(const Message& message) {
    sp<Stub> object;
    {
        std::lock_guard lock(mLock);
        const auto found = mExports.find(message.target);
        if (found == mExports.end()) {
            return false;
        }
        object = found->second;
    }
    Parcel args(this, message.data, message.size);
    Parcel reply(this);
    if (!object->onTransact(message.code, args, reply)) {
        return false;
    }
    if (message.call != 0 && !send(CONTROL_TARGET, CODE_REPLY, message.call, reply).isOk() &&
        isOpen()) {
        close("reply too long to be sent");  // or its caller would wait for ever
    }
    return true;
}

bool Connection::serveRelease(const Message& message) {
    Parcel args(this, message.data, message.size);
    uint32_t id = 0;
    if (!args.read(&id) || !args.atEnd()) {
        return false;
    }
    decltype(mExports)::node_type released;
    {
        std::lock_guard lock(mLock);
        released = mExports.extract(id);
    }
    if (released.empty()) {
        return false;
    }
    released = {};
    closeIfUnused();
    return true;
}

bool Connection::takeRefusal(const Message& message) {
    Parcel args(this, message.data, message.size);
    std::string reason;
    if (!mToService || !args.readString(&reason) || !args.atEnd()) {
        return false;
    }
    close("refused by the service: " + reason);
    return true;
}

bool Connection::takeReply(const Message& message) {
    std::lock_guard lock(mLock);
    const auto found = mWaiters.find(message.call);
    if (found == mWaiters.end() || found->second->done) {
        return false;
    }
    found->second->reply->writeBytes(message.data, message.size);
    found->second->done = true;
    mReplied.notify_all();
    return true;
}

/** The reader thread waits for a reply itself: takes replies, leaves the rest where it stands. */
void Connection::readUntil(const Waiter& waiter) {
    Message message{};
    size_t ahead = 0;
    while (!waiter.done && mIncoming->receive(ahead, &message)) {
        if (message.target != CONTROL_TARGET || message.code != CODE_REPLY) {
            ahead += Parcel::HEADER_SIZE + message.size;
        } else if (takeReply(message)) {
            mIncoming->takeOut(ahead, message);
        } else {
            close("reply that nobody waits for");
        }
        if (ahead > MAX_WAITING_SIZE) {
            close("too many calls instead of a reply");
        }
    }
}

// Proxies.

Proxy::Proxy(std::shared_ptr<Connection> connection, uint32_t target)
    : mConnection(std::move(connection)), mTarget(target) {
}

Proxy::~Proxy() {
    mConnection->releaseProxy(mTarget);
}

Return<void> Proxy::wait(uint32_t code, Parcel& args) {
    Parcel reply(mConnection.get());
    Return<void> status = mConnection->transact(mTarget, code, args, &reply);
    if (status.isOk() && reply.size() != 0) {
        mConnection->close("reply with bytes that no one can understand");
        return Status::fromStatusT(android::FAILED_TRANSACTION, "reply that does not decode");
    }
    return status;
}

}  // namespace hal
