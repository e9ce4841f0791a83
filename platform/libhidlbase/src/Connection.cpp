#include <hidl/Transport.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <system_error>
#include <thread>

#include "Socket.h"

using android::sp;
using android::hardware::Return;
using android::hardware::Status;

namespace hal {

namespace {

// A message's header: size of all that follows it, target, code, call id.
constexpr size_t SIZE_FIELD = sizeof(uint32_t);

// Target 0 is the connection itself.
constexpr uint32_t CONTROL_TARGET = 0;
constexpr uint32_t CODE_REPLY = 1;    // to the call whose id it carries
constexpr uint32_t CODE_RELEASE = 2;  // argument: id of an object that was exported to the sender
constexpr uint32_t CODE_TAKEN = 0;    // means nothing; marks a reply that was read ahead

constexpr size_t FIRST_BUFFER_SIZE = 64 * 1024;
// Calls may wait in the buffer while the thread that would serve them waits for a reply.
constexpr size_t MAX_WAITING_SIZE = 4 * MAX_MESSAGE_SIZE;

std::atomic<int> sStallLimitMs{5000};

// The connection whose reader thread this is.
thread_local const Connection* tServing = nullptr;

uint32_t fieldAt(const uint8_t* frame, size_t index) {
    uint32_t field = 0;
    memcpy(&field, frame + index * sizeof field, sizeof field);
    return field;
}

std::string stallReason(const char* what) {
    return std::string(what) + " for " + std::to_string(sStallLimitMs) + " ms";
}

}  // namespace

void setStallLimit(std::chrono::milliseconds limit) {
    sStallLimitMs = static_cast<int>(limit.count());
}

std::shared_ptr<Connection> Connection::connect(const std::string& path, std::string* error) {
    const auto fail = [&](const std::string& reason) {
        if (error != nullptr) {
            *error = path + ": " + reason;
        }
        return nullptr;
    };
    sockaddr_un address{};
    if (!socketAddress(path, &address)) {
        return fail("too long for a socket");
    }
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    // A service that does not accept must not hold its clients for ever.
    const timeval limit{sStallLimitMs / 1000, sStallLimitMs % 1000 * 1000};
    if (fd.get() < 0 || setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0 ||
        ::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        return fail(strerror(errno));
    }
    const auto connection = std::make_shared<Connection>(fd.release());
    try {
        connection->start();
    } catch (const std::system_error& failure) {
        return fail(failure.what());
    }
    return connection;
}

Connection::~Connection() {
    ::close(mFd);
}

void Connection::start(std::function<void()> ended) {
    mThreadEnded = std::move(ended);
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
    close("no longer used");
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
    if (mOpen) {
        release(target);
    }
    closeIfUnused();
}

/** Whoever lets go of a proxy does not wait for a peer that reads nothing: then a thread does. */
void Connection::release(uint32_t target) {
    // Where it does not get through, the connection is over and so is everything exported on it.
    Parcel args;
    args.write(target);
    pollfd writable{mFd, POLLOUT, 0};
    const std::unique_lock sending(mSendLock, std::try_to_lock);
    if (sending && poll(&writable, 1, 0) == 1) {
        (void)write(CONTROL_TARGET, CODE_RELEASE, 0, args);
        return;
    }
    try {
        std::thread([self = shared_from_this(), target] {
            Parcel later;
            later.write(target);
            (void)self->send(CONTROL_TARGET, CODE_RELEASE, 0, later);
        }).detach();
    } catch (const std::system_error&) {
        close("no thread to release an object");
    }
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
    const size_t size = Parcel::HEADER_SIZE + args.size();
    if (size > MAX_MESSAGE_SIZE) {
        return Status::fromStatusT(android::FAILED_TRANSACTION,
                                   "message of " + std::to_string(size) + " bytes, at most " +
                                           std::to_string(MAX_MESSAGE_SIZE) + " go");
    }
    std::lock_guard lock(mSendLock);
    return write(target, code, call, args);
}

/** Under mSendLock. */
Status Connection::write(uint32_t target, uint32_t code, uint32_t call, Parcel& args) {
    const size_t size = Parcel::HEADER_SIZE + args.size();
    const uint32_t header[] = {static_cast<uint32_t>(size - SIZE_FIELD), target, code, call};
    static_assert(sizeof header == Parcel::HEADER_SIZE);
    uint8_t* frame = args.frame();
    memcpy(frame, header, sizeof header);
    return mOpen && writeAll(frame, size) ? Status::ok() : deadObject();
}

bool Connection::writeAll(const uint8_t* bytes, size_t size) {
    using Clock = std::chrono::steady_clock;
    Clock::time_point stalled{};
    while (size != 0) {
        const ssize_t sent = ::send(mFd, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            bytes += sent;
            size -= static_cast<size_t>(sent);
            stalled = {};
        } else if (errno != EAGAIN && errno != EINTR) {
            stopSending(std::string("peer gone, ") + strerror(errno));
            return false;
        } else if (const auto now = Clock::now(); stalled == Clock::time_point{}) {
            stalled = now;
        } else if (now - stalled >= std::chrono::milliseconds(sStallLimitMs)) {
            close(stallReason("peer has read nothing"));
        }
        if (!mOpen) {
            return false;
        }
        if (size != 0) {
            // In slices: the kernel calls a socket writable only when it is mostly empty, and a
            // peer that reads slowly reads.
            pollfd writable{mFd, POLLOUT, 0};
            poll(&writable, 1, std::min(sStallLimitMs / 10 + 1, 100));
        }
    }
    return true;
}

void Connection::stopSending(const std::string& reason) {
    std::lock_guard lock(mLock);
    if (mOpen.exchange(false)) {
        mReason = reason;
    }
}

void Connection::close(const std::string& reason) {
    {
        std::lock_guard lock(mLock);
        mOpen = false;
        if (!mCut.exchange(true)) {
            mReason = reason;
        }
    }
    shutdown(mFd, SHUT_RDWR);
}

std::string Connection::cutReason() const {
    std::lock_guard lock(mLock);
    return mCut ? mReason : "";
}

Status Connection::deadObject() const {
    std::lock_guard lock(mLock);
    return Status::fromStatusT(android::DEAD_OBJECT, mReason);
}

// The reader thread.

void Connection::run() {
    tServing = this;
    mBuffer.resize(FIRST_BUFFER_SIZE);
    Message message{};
    while (receive(0, &message)) {
        mBegin += Parcel::HEADER_SIZE + message.size;
        if (!serve(message)) {
            close("call of target " + std::to_string(message.target) + ", code " +
                  std::to_string(message.code) + " with " + std::to_string(message.size) +
                  " bytes of arguments cannot be understood");
        }
    }
    end();
    tServing = nullptr;
}

void Connection::end() {
    stopSending("peer closed the connection");
    shutdown(mFd, SHUT_RDWR);
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
    if (mThreadEnded) {
        mThreadEnded();
    }
}

/** Gives the message that stands so many bytes behind the next one to be served. */
bool Connection::receive(size_t ahead, Message* message) {
    if (!fill(ahead, Parcel::HEADER_SIZE)) {
        return false;
    }
    const size_t size = size_t{fieldAt(mBuffer.data() + mBegin + ahead, 0)} + SIZE_FIELD;
    if (size < Parcel::HEADER_SIZE || size > MAX_MESSAGE_SIZE) {
        close("message of " + std::to_string(size) + " bytes");
        return false;
    }
    if (!fill(ahead, size)) {
        return false;
    }
    const uint8_t* frame = mBuffer.data() + mBegin + ahead;
    *message = {fieldAt(frame, 1), fieldAt(frame, 2), fieldAt(frame, 3),
                frame + Parcel::HEADER_SIZE, size - Parcel::HEADER_SIZE};
    return true;
}

/** Reads until the message that stands so far ahead has that many bytes; false if it will not. */
bool Connection::fill(size_t ahead, size_t size) {
    while (!mCut && mFilled - mBegin < ahead + size) {
        if (mBegin != 0) {
            std::copy(mBuffer.begin() + mBegin, mBuffer.begin() + mFilled, mBuffer.begin());
            mFilled -= std::exchange(mBegin, 0);
        }
        mBuffer.resize(std::max(mBuffer.size(), ahead + size));
        // A thread that sleeps in recv itself is woken whenever the peer reads, too.
        pollfd readable{mFd, POLLIN, 0};
        if (poll(&readable, 1, mFilled > ahead ? sStallLimitMs.load() : -1) == 0) {
            close(stallReason("peer has left a message half sent"));
            return false;
        }
        const ssize_t got = recv(mFd, mBuffer.data() + mFilled, mBuffer.size() - mFilled, 0);
        if (got == 0 || (got < 0 && errno != EINTR)) {
            return false;
        }
        mFilled += static_cast<size_t>(std::max<ssize_t>(got, 0));
    }
    return !mCut;
}

bool Connection::serve(const Message& message) {
    if (message.target != CONTROL_TARGET) {
        return serveCall(message);
    }
    return message.code == CODE_REPLY     ? takeReply(message)
           : message.code == CODE_RELEASE ? serveRelease(message)
                                          : message.code == CODE_TAKEN;
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
        mOpen) {
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
    while (!waiter.done && receive(ahead, &message)) {
        if (message.target == CONTROL_TARGET && message.code == CODE_REPLY) {
            if (!takeReply(message)) {
                close("reply that nobody waits for");
            }
            memcpy(mBuffer.data() + mBegin + ahead + 2 * sizeof CODE_TAKEN, &CODE_TAKEN,
                   sizeof CODE_TAKEN);
        }
        ahead += Parcel::HEADER_SIZE + message.size;
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
