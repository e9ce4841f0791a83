#include "Outgoing.h"

#include <fcntl.h>
#include <hidl/Transport.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "Writer.h"

namespace hal {

namespace {

/** Room that stays with a connection while nothing is kept for its peer, in bytes. */
constexpr size_t SPARE_ROOM = 64 * 1024;

/** Bytes that are held back at most. */
constexpr size_t MAX_HELD = 4 * 1024;

/** Bytes of one mark at most, so that a caller gets back what has gone before all has. */
constexpr size_t MAX_MARKED = 16 * 1024;

std::atomic<int> sStallLimitMs{5000};

}  // namespace

void setStallLimit(std::chrono::milliseconds limit) {
    sStallLimitMs = static_cast<int>(limit.count());
}

std::chrono::milliseconds stallLimit() {
    return std::chrono::milliseconds(sStallLimitMs);
}

std::string stallReason(const std::string& what) {
    return what + " within " + std::to_string(sStallLimitMs) + " ms";
}

Outgoing::~Outgoing() {
    drop();
}

std::string Outgoing::reason() const {
    std::lock_guard lock(mLock);
    return mReason;
}

Outgoing::Clock::time_point Outgoing::due() const {
    std::lock_guard lock(mLock);
    return mMarks.empty() ? Clock::time_point::max() : mMarks.front().since + stallLimit();
}

// Sending.

bool Outgoing::push(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors,
                    bool mayBeHeld) {
    std::lock_guard lock(mLock);
    const bool isSmall = mWaiting + size <= MAX_HELD && descriptors.empty();
    if (!mOpen || (mHolding && !isSmall && !sendHeld())) {
        return false;
    }
    const bool isHeld = mayBeHeld && isSmall && runtime::Burst::goesOn();
    if (mWaiting != 0) {
        return keep(bytes, size, descriptors) && (isHeld || !mHolding || sendHeld());
    }
    if (isHeld) {
        return keep(bytes, size, descriptors) && hold();
    }
    const ssize_t count = sendSome(bytes, size, descriptors);
    if (count < 0) {
        return false;
    }
    const auto gone = static_cast<size_t>(count);
    mPlace += gone;
    return gone == size ||
           (keep(bytes + gone, size - gone, gone == 0 ? descriptors : std::vector<int>()) &&
            passToWriter());
}

/** The first bytes of a burst; where nobody could look after them they are sent now. */
bool Outgoing::hold() {
    mHolding = true;
    if (!mHeldWithWriter) {
        try {
            writer::hold(shared_from_this());
            mHeldWithWriter = true;
        } catch (const std::system_error&) {
            return sendHeld();
        }
    }
    runtime::Burst::keep(shared_from_this());
    return true;
}

void Outgoing::release() {
    std::lock_guard lock(mLock);
    (void)sendHeld();  // where it does not get through, `reason` tells
}

void Outgoing::flushHeld() {
    std::lock_guard lock(mLock);
    mHeldWithWriter = false;
    (void)sendHeld();
}

/** False when it does not get through. */
bool Outgoing::sendHeld() {
    if (std::exchange(mHolding, false)) {
        sendKept();
        return mOpen && (mWaiting == 0 || passToWriter());
    }
    return mOpen;
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
    ssize_t count = 0;
    do {
        count = sendmsg(mFd.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (count < 0 && errno == EINTR);
    if (count < 0 && errno != EAGAIN) {
        end(std::string("peer gone, ") + strerror(errno), false);
        return -1;
    }
    return std::max<ssize_t>(count, 0);
}

bool Outgoing::keep(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors) {
    if (mWaiting + size > MAX_OUTGOING) {
        end("peer has left more than " + std::to_string(MAX_OUTGOING) + " bytes untaken", true);
        return false;
    }
    const uint64_t place = mPlace + mWaiting;
    if (!descriptors.empty()) {
        Attached attached{place, {}};
        for (const int descriptor : descriptors) {
            attached.descriptors.emplace_back(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
            if (attached.descriptors.back().get() < 0) {
                end(std::string("a descriptor cannot wait, ") + strerror(errno), true);
                return false;
            }
        }
        mAttached.push_back(std::move(attached));
    }
    mKept.insert(mKept.end(), bytes, bytes + size);
    count(static_cast<ptrdiff_t>(size));
    mark(place + size, size);
    return true;
}

/** Few marks do: what is kept at about the same time because of the same caller shares one. */
void Outgoing::mark(uint64_t end, size_t size) {
    const std::shared_ptr<runtime::Caller>& caller = runtime::Caller::current();
    if (caller != nullptr) {
        caller->add(runtime::Caller::BYTES, size);
    }
    const bool isLike = !mMarks.empty() && mMarks.back().caller == caller &&
                        mMarks.back().size + size <= MAX_MARKED;
    if (isLike && mHolding) {
        mMarks.back().end = end;
        mMarks.back().size += size;
        return;
    }
    const auto now = Clock::now();
    if (!isLike || now - mMarks.back().since > stallLimit() / 50) {
        mMarks.push_back({end, 0, now, caller});
    }
    mMarks.back().end = end;
    mMarks.back().size += size;
}

void Outgoing::unmark() {
    if (const Mark& first = mMarks.front(); first.caller != nullptr) {
        first.caller->giveBack(runtime::Caller::BYTES, first.size);
    }
    mMarks.pop_front();
}

bool Outgoing::passToWriter() {
    if (mWithWriter) {
        return true;
    }
    try {
        writer::add(shared_from_this());
        return mWithWriter = true;
    } catch (const std::system_error& error) {
        end(std::string("no thread that could write, ") + error.what(), true);
        return false;
    }
}

void Outgoing::count(ptrdiff_t bytes) {
    mWaiting += static_cast<size_t>(bytes);
    writer::countKept(bytes);
}

bool Outgoing::flush() {
    std::lock_guard lock(mLock);
    sendKept();
    if (mWaiting != 0) {
        return true;
    }
    mWithWriter = false;
    if (mFinishing) {
        shutdown(mFd.get(), SHUT_RDWR);
    }
    return false;
}

/** In one system call, or one for each message that carries descriptors. */
void Outgoing::sendKept() {
    while (mWaiting != 0) {
        const bool attached = !mAttached.empty() && mAttached.front().place == mPlace;
        std::vector<int> descriptors;
        if (attached) {
            for (const runtime::UniqueFd& descriptor : mAttached.front().descriptors) {
                descriptors.push_back(descriptor.get());
            }
        }
        size_t size = mWaiting;
        if (const size_t next = attached ? 1 : 0; next < mAttached.size()) {
            size = static_cast<size_t>(mAttached[next].place - mPlace);
        }
        const ssize_t count = sendSome(mKept.data() + mBegin, size, descriptors);
        if (count <= 0) {
            return;
        }
        if (attached) {
            mAttached.pop_front();
        }
        sent(static_cast<size_t>(count));
    }
}

void Outgoing::sent(size_t size) {
    mBegin += size;
    mPlace += size;
    count(-static_cast<ptrdiff_t>(size));
    while (!mMarks.empty() && mMarks.front().end <= mPlace) {
        unmark();
    }
    if (mWaiting == 0 && mKept.capacity() > SPARE_ROOM) {
        mKept = {};
        mBegin = 0;
    } else if (mBegin >= mWaiting) {  // moves no byte twice for nothing
        mKept.erase(mKept.begin(), mKept.begin() + static_cast<ptrdiff_t>(mBegin));
        mBegin = 0;
    }
    mRoom.notify_all();
}

void Outgoing::waitUntilKept(size_t bytes) {
    if (mWaiting > bytes) {
        std::unique_lock lock(mLock);
        mRoom.wait(lock, [&] { return !mOpen || mWaiting <= bytes; });
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
    if (!sendHeld()) {
        return;
    }
    if (mWaiting == 0) {
        end(reason, true);
        return;
    }
    mOpen = false;
    mFinishing = true;
    mReason = reason;
    mRoom.notify_all();
}

void Outgoing::end(const std::string& reason, bool cut) {
    if (mOpen.exchange(false) || (cut && !mCut)) {
        mReason = reason;
    }
    mCut = mCut || cut;
    drop();
    mRoom.notify_all();
    if (cut) {
        shutdown(mFd.get(), SHUT_RDWR);
    }
}

void Outgoing::drop() {
    count(-static_cast<ptrdiff_t>(mWaiting.load()));
    mKept = {};
    mBegin = 0;
    mHolding = false;
    while (!mMarks.empty()) {
        unmark();
    }
    mAttached.clear();
}

}  // namespace hal
