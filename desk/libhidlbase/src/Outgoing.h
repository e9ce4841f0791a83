#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/UnixSocket.h"

namespace hal {

/**
 * The sending half of a connection, and what ended it. What the socket does not take at once is
 * queued, and sent by a writer thread that lives as long as something is queued. Any thread may
 * call any method.
 */
class Outgoing final : public std::enable_shared_from_this<Outgoing> {
public:
    using Clock = std::chrono::steady_clock;

    /** Takes over a connected socket, and closes it at the end. */
    explicit Outgoing(int fd) : mFd(fd) {}
    ~Outgoing();
    Outgoing(const Outgoing&) = delete;
    Outgoing& operator=(const Outgoing&) = delete;

    int socket() const { return mFd.get(); }

    /** False as soon as nothing more can be sent. */
    bool isOpen() const { return mOpen; }

    /** This side cut the connection: nothing that comes is to be served any more. */
    bool isCut() const { return mCut; }

    /** Why nothing more can be sent; "" when it can. */
    std::string reason() const;

    /**
     * Sends a whole message, or queues what does not go at once. A peer that leaves too much queued
     * is cut.
     *
     * @param descriptors go along; the caller's, who may close them afterwards
     * @return false when it did not get through, for `reason`
     */
    bool push(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors);

    /** Waits until no more than so many bytes are queued, or nothing more can be sent. */
    void waitForRoom(size_t bytes);

    /** The same for a moment; not again before the peer has taken a message. */
    void waitForPeer(size_t bytes);

    /** The peer closed the connection, and so does this side; not a cut. */
    void stop(const std::string& reason);

    /** Ends the connection at once, in both directions; what is queued is dropped. */
    void cut(const std::string& reason);

    /** Ends the connection when what is queued has been sent. */
    void finish(const std::string& reason);

private:
    struct Message {
        std::vector<uint8_t> bytes;
        size_t sent;
        std::vector<runtime::UniqueFd> descriptors;
        Clock::time_point due;  ///< the peer has to have taken it as a whole
    };

    // Under mLock.
    ssize_t sendSome(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors);
    bool sendFirst();
    bool queue(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors);
    bool startWriter();
    void count(ptrdiff_t bytes);
    void end(const std::string& reason, bool cut);

    void write();

    const runtime::UniqueFd mFd;
    std::atomic<bool> mOpen{true};
    std::atomic<bool> mCut{false};

    mutable std::mutex mLock;  ///< guards what follows; held during sends, which do not wait
    std::condition_variable mTaken;
    std::string mReason;
    std::deque<Message> mQueue;
    size_t mQueued = 0;  ///< bytes of the queue, with what its entries cost
    bool mWriting = false;
    bool mStuck = false;  ///< somebody has waited in vain
    bool mFinishing = false;
};

/** The limit that was set by `setStallLimit`. */
std::chrono::milliseconds stallLimit();

/** What a peer failed to do, with the limit: "peer has not taken a message within 5000 ms". */
std::string stallReason(const std::string& what);

}  // namespace hal
