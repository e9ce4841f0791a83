#include "Incoming.h"

#include <hidl/Transport.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "Outgoing.h"

namespace hal {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t FIRST_BUFFER_SIZE = 64 * 1024;

uint32_t fieldAt(const uint8_t* frame, size_t index) {
    uint32_t field = 0;
    memcpy(&field, frame + index * sizeof(field), sizeof(field));
    return field;
}

}  // namespace

Incoming::~Incoming() {
    for (const int descriptor : mDescriptors) {
        ::close(descriptor);
    }
}

void Incoming::expect() {
    mMessageDue = Clock::now() + stallLimit();
}

bool Incoming::receive(size_t ahead, Message* message) {
    if (!fill(ahead, Parcel::HEADER_SIZE)) {
        return false;
    }
    const size_t size = size_t{fieldAt(mBuffer.data() + mBegin + ahead, 0)} + SIZE_FIELD;
    if (size < Parcel::HEADER_SIZE || size > MAX_MESSAGE_SIZE) {
        mConnection.cut("message of " + std::to_string(size) + " bytes");
        return false;
    }
    if (!fill(ahead, size)) {
        return false;
    }
    mMessageDue.reset();
    const uint8_t* frame = mBuffer.data() + mBegin + ahead;
    *message = {fieldAt(frame, 1), fieldAt(frame, 2), fieldAt(frame, 3),
                frame + Parcel::HEADER_SIZE, size - Parcel::HEADER_SIZE};
    return true;
}

void Incoming::pass(const Message& message) {
    mBegin += Parcel::HEADER_SIZE + message.size;
}

void Incoming::takeOut(size_t ahead, const Message& message) {
    const size_t size = Parcel::HEADER_SIZE + message.size;
    const auto begin = mBuffer.begin() + static_cast<ptrdiff_t>(mBegin + ahead);
    std::copy(begin + static_cast<ptrdiff_t>(size), mBuffer.begin() + mFilled, begin);
    mFilled -= size;
}

int Incoming::takeDescriptor() {
    if (mDescriptors.empty()) {
        return -1;
    }
    const int descriptor = mDescriptors.front();
    mDescriptors.pop_front();
    return descriptor;
}

/** Reads until the message that stands so far ahead has that many bytes; false if it will not. */
bool Incoming::fill(size_t ahead, size_t size) {
    while (!mConnection.isCut() && mFilled - mBegin < ahead + size) {
        makeRoom(ahead, size);
        if (!waitReadable(mFilled > ahead) || !receiveSome()) {
            return false;
        }
    }
    return !mConnection.isCut();
}

/** Grows with what comes, not with what a header announces. */
void Incoming::makeRoom(size_t ahead, size_t size) {
    if (mBegin != 0) {
        std::copy(mBuffer.begin() + mBegin, mBuffer.begin() + mFilled, mBuffer.begin());
        mFilled -= std::exchange(mBegin, 0);
    }
    if (mFilled == 0 && mBuffer.size() != FIRST_BUFFER_SIZE) {
        mBuffer = std::vector<uint8_t>(FIRST_BUFFER_SIZE);
    } else if (mFilled == mBuffer.size()) {
        mBuffer.resize(std::min(ahead + size, 2 * mBuffer.size()));
    }
}

/** Without a message that was started or is expected, for as long as it takes. */
bool Incoming::waitReadable(bool started) {
    if (started && !mMessageDue) {
        expect();
    }
    int timeout = -1;
    if (mMessageDue) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*mMessageDue - Clock::now());
        timeout = std::max(0, static_cast<int>(left.count()));
    }
    // A thread that sleeps in recvmsg itself is woken whenever the peer reads, too.
    pollfd readable{mConnection.socket(), POLLIN, 0};
    if (poll(&readable, 1, timeout) == 0) {
        mConnection.cut(stallReason(started ? "peer has not completed a message"
                                            : "peer has not sent its first message"));
        return false;
    }
    return true;
}

bool Incoming::receiveSome() {
    iovec content{mBuffer.data() + mFilled, mBuffer.size() - mFilled};
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(MAX_DESCRIPTORS * sizeof(int))];
    msghdr message{};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const ssize_t got = recvmsg(mConnection.socket(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) {
        return false;
    }
    if (got < 0) {
        return true;
    }
    mFilled += static_cast<size_t>(got);
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        int descriptors[MAX_DESCRIPTORS];
        memcpy(descriptors, CMSG_DATA(header), count * sizeof(int));
        mDescriptors.insert(mDescriptors.end(), descriptors, descriptors + count);
    }
    if ((message.msg_flags & MSG_CTRUNC) != 0 || mDescriptors.size() > MAX_DESCRIPTORS) {
        mConnection.cut("more than " + std::to_string(MAX_DESCRIPTORS) + " descriptors");
    }
    return true;
}

}  // namespace hal
