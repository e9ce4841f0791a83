#pragma once

#include <hidl/Parcel.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace hal {

class Outgoing;

/** A call, or its reply, as it stands in the receiving buffer. */
struct Message {
    uint32_t target;
    uint32_t code;
    uint32_t call;  ///< 0 oneway, otherwise what the reply has to carry
    const uint8_t* data;
    size_t size;
};

/**
 * The receiving half of a connection, for its reader thread alone. A peer that breaks the limits is
 * cut, and so is one that is late: a message is due as a whole from its first byte on.
 */
class Incoming {
public:
    /** A message's header: size of all that follows this field, target, code, call id. */
    static constexpr size_t SIZE_FIELD = sizeof(uint32_t);

    /** @param connection the other half, which outlives this one */
    explicit Incoming(Outgoing& connection) : mConnection(connection) {}
    ~Incoming();
    Incoming(const Incoming&) = delete;
    Incoming& operator=(const Incoming&) = delete;

    /** The next message has to come within the stall limit; without this, it may come at any time.
     */
    void expect();

    /**
     * Waits for a message.
     *
     * @param ahead it stands so many bytes behind the next one; those have come before
     * @param message valid until the next call
     * @return false when the connection is over
     */
    bool receive(size_t ahead, Message* message);

    /** Goes on behind the next message; its bytes stay where they are until more is received. */
    void pass(const Message& message);

    /** Takes a message out that stands so far ahead. */
    void takeOut(size_t ahead, const Message& message);

    /** The next descriptor that came along; the caller's from now on. -1 without. */
    int takeDescriptor();

    /** Descriptors are left, and no message that might take them. */
    bool hasStrayDescriptors() const { return mBegin == mFilled && !mDescriptors.empty(); }

private:
    bool fill(size_t ahead, size_t size);
    void makeRoom(size_t ahead, size_t size);
    bool waitReadable(bool started);
    bool receiveSome();

    Outgoing& mConnection;
    std::vector<uint8_t> mBuffer;  ///< received from mBegin to mFilled
    size_t mBegin = 0;
    size_t mFilled = 0;
    std::deque<int> mDescriptors;  ///< received and not taken yet
    std::optional<std::chrono::steady_clock::time_point> mMessageDue;
};

}  // namespace hal
