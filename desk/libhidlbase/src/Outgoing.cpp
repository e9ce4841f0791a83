#include "Outgoing.h"

#include <fcntl.h>
#include <hidl/Transport.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

namespace hal {

namespace {

using std::chrono::milliseconds;

/** A message waits so long for a peer that is behind. */
constexpr auto PATIENCE = milliseconds(20);

/** At exit, what is queued has as long to get out, in all. */
constexpr auto EXIT_LIMIT = milliseconds(1000);

/** Memory that a queued message takes beside its bytes. */
constexpr size_t ENTRY_SIZE = 128;

std::atomic<int> sStallLimitMs{5000};
std::atomic<ptrdiff_t> sQueuedInAll{0};

void waitAtExit() {
    const auto end = Outgoing::Clock::now() + EXIT_LIMIT;
    while (sQueuedInAll > 0 && Outgoing::Clock::now() < end) {
        std::this_thread::sleep_for(milliseconds(1));
    }
}

}  // namespace

void setStallLimit(milliseconds limit) {
    sStallLimitMs = static_cast<int>(limit.count());
}

milliseconds stallLimit() {
    return milliseconds(sStallLimitMs);
}

std::string stallReason(const std::string& what) {
    return what + " within " + std::to_string(sStallLimitMs) + " ms";
}

Outgoing::~Outgoing() {
    count(-static_cast<ptrdiff_t>(mQueued));
}

std::string Outgoing::reason() const {
    std::lock_guard lock(mLock);
    return mReason;
}

// Sending.

bool Outgoing::push(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors) {
    std::lock_guard lock(mLock);
    if (!mOpen) {
        return false;
    }
    const ssize_t sent = mQueue.empty() ? sendSome(bytes, size, descriptors) : 0;
    if (sent < 0 || static_cast<size_t>(sent) == size) {
        return sent >= 0;
    }
    return queue(bytes + sent, size - static_cast<size_t>(sent),
                 sent == 0 ? descriptors : std::vector<int>()) &&
           startWriter();
}

/** What the socket takes now; -1 when the peer is gone. */
ssize_t Outgoing::sendSome(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors) {
    iovec content{const_cast<uint8_t*>(bytes), size};
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(MAX_DESCRIPTORS * sizeof(int))] = {};
    if (!descriptors.empty()) {
        const size_t length = descriptors.size() * sizeof(int);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(length);
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(length);
        memcpy(CMSG_DATA(header), descriptors.data(), length);
    }
    ssize_t sent = 0;
    do {
        sent = sendmsg(mFd.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0 && errno != EAGAIN) {
        end(std::string("peer gone, ") + strerror(errno), false);
        return -1;
    }
    return std::max<ssize_t>(sent, 0);
}

bool Outgoing::queue(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors) {
    const size_t queued = mQueued + size + ENTRY_SIZE;
    if (queued > MAX_OUTGOING) {
        end("peer has left more than " + std::to_string(MAX_OUTGOING) + " bytes untaken", true);
        return false;
    }
    if (queued > MAX_UNTAKEN && sQueuedInAll > static_cast<ptrdiff_t>(MAX_OUTGOING_IN_ALL)) {
        end("peer has left bytes untaken, and all together more than " +
                    std::to_string(MAX_OUTGOING_IN_ALL),
            true);
        return false;
    }
    Message message{{bytes, bytes + size}, 0, {}, Clock::now() + stallLimit()};
    for (const int descriptor : descriptors) {
        message.descriptors.emplace_back(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
        if (message.descriptors.back().get() < 0) {
            end(std::string("a descriptor cannot wait, ") + strerror(errno), true);
            return false;
        }
    }
    mQueue.push_back(std::move(message));
    count(static_cast<ptrdiff_t>(size + ENTRY_SIZE));
    return true;
}

void Outgoing::count(ptrdiff_t bytes) {
    mQueued += static_cast<size_t>(bytes);
    sQueuedInAll += bytes;
}

bool Outgoing::startWriter() {
    if (mWriting) {
        return true;
    }
    static const int sAtExit = std::atexit(waitAtExit);
    (void)sAtExit;
    try {
        std::thread([self = shared_from_this()] { self->write(); }).detach();
        return mWriting = true;
    } catch (const std::system_error& error) {
        end(std::string("no thread that could write, ") + error.what(), true);
        return false;
    }
}

/** The writer thread: sends until nothing is queued, or the peer is too late. */
void Outgoing::write() {
    std::unique_lock lock(mLock);
    while (!mQueue.empty()) {
        if (sendFirst() || mQueue.empty()) {
            continue;
        }
        const auto left = std::chrono::ceil<milliseconds>(mQueue.front().due - Clock::now());
        if (left.count() <= 0) {
            end(stallReason("peer has not taken a message"), true);
            break;
        }
        lock.unlock();
        // At least so often, since the system calls a socket writable when most of it is free.
        pollfd writable{mFd.get(), POLLOUT, 0};
        poll(&writable, 1, static_cast<int>(std::min(left, stallLimit() / 4).count() + 1));
        lock.lock();
    }
    mWriting = false;
    if (mFinishing) {
        shutdown(mFd.get(), SHUT_RDWR);
    }
}

/** False when the socket did not take the rest of the first message. */
bool Outgoing::sendFirst() {
    Message& first = mQueue.front();
    std::vector<int> descriptors;
    for (const runtime::UniqueFd& descriptor : first.descriptors) {
        descriptors.push_back(descriptor.get());
    }
    const ssize_t sent =
            sendSome(first.bytes.data() + first.sent, first.bytes.size() - first.sent, descriptors);
    if (sent <= 0) {
        return false;
    }
    first.descriptors.clear();
    first.sent += static_cast<size_t>(sent);
    if (first.sent < first.bytes.size()) {
        return false;
    }
    count(-static_cast<ptrdiff_t>(first.bytes.size() + ENTRY_SIZE));
    mQueue.pop_front();
    mStuck = false;
    mTaken.notify_all();
    return true;
}

void Outgoing::waitForRoom(size_t bytes) {
    std::unique_lock lock(mLock);
    mTaken.wait(lock, [&] { return !mOpen || mQueued <= bytes; });
}

void Outgoing::waitForPeer(size_t bytes) {
    std::unique_lock lock(mLock);
    if (mQueued > bytes && !mStuck) {
        mStuck = true;  // until it takes a message
        mTaken.wait_for(lock, PATIENCE, [&] { return !mOpen || mQueued <= bytes; });
    }
}

// The end.

void Outgoing::stop(const std::string& reason) {
    std::lock_guard lock(mLock);
    if (!mFinishing) {  // else the writer ends it
        end(reason, false);
        shutdown(mFd.get(), SHUT_RDWR);
    }
}

void Outgoing::cut(const std::string& reason) {
    std::lock_guard lock(mLock);
    end(reason, true);
}

void Outgoing::finish(const std::string& reason) {
    std::lock_guard lock(mLock);
    if (!mOpen) {
        return;
    }
    if (mQueue.empty()) {
        end(reason, true);
        return;
    }
    mOpen = false;
    mFinishing = true;
    mReason = reason;
    mTaken.notify_all();
}

void Outgoing::end(const std::string& reason, bool cut) {
    if (mOpen.exchange(false) || (cut && !mCut)) {
        mReason = reason;
    }
    mCut = mCut || cut;
    count(-static_cast<ptrdiff_t>(mQueued));
    mQueue.clear();
    mTaken.notify_all();
    if (cut) {
        shutdown(mFd.get(), SHUT_RDWR);
    }
}

}  // namespace hal
