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

#include "runtime/Burst.h"
#include "runtime/Caller.h"
#include "runtime/UnixSocket.h"

namespace hal {

/**
 * The sending half of a connection, and what ended it. Nobody waits for the peer: what the socket
 * does not take at once is kept, and sent by the process's one writer thread. What a thread sends
 * during a burst is held back until it goes out together, at most a millisecond. Any thread may
 * call any method.
 */
class Outgoing final : public runtime::Burst::Sender,
                       public std::enable_shared_from_this<Outgoing> {
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
     * Sends a whole message, or keeps what does not go at once. A peer that leaves too much to be
     * kept is cut.
     *
     * @param descriptors go along; the caller's, who may close them afterwards
     * @param mayBeHeld nobody waits for it: during a burst it may go out with what follows
     * @return false when it did not get through, for `reason`
     */
    bool push(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors,
              bool mayBeHeld);

    /** Sends what was held back. */
    void release() override;

    /** Waits until no more than so many bytes are kept, or nothing more can be sent. */
    void waitUntilKept(size_t bytes);

    /** The peer closed the connection, and so does this side; not a cut. */
    void stop(const std::string& reason);

    /** Ends the connection at once, in both directions; what was kept is dropped. */
    void cut(const std::string& reason);

    /** Ends the connection when what is kept has been sent. */
    void finish(const std::string& reason);

    /** Bytes that are kept or held. */
    size_t waiting() const { return mWaiting; }

    // The writer thread's.

    /** Sends what the socket takes; false when nothing is left to be sent by the writer. */
    bool flush();

    /** Sends what is still held; the writer no longer looks after it. */
    void flushHeld();

    /** When the peer has to have taken the oldest message that is kept. */
    Clock::time_point due() const;

private:
    /** So many bytes, up to a place in the stream, are kept since then because of a caller. */
    struct Mark {
        uint64_t end;
        size_t size;
        Clock::time_point since;
        std::shared_ptr<runtime::Caller> caller;
    };
    /** Descriptors that go with the byte at a place in the stream. */
    struct Attached {
        uint64_t place;
        std::vector<runtime::UniqueFd> descriptors;
    };

    // Under mLock.
    ssize_t sendSome(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors);
    void sendKept();
    void sent(size_t size);
    bool keep(const uint8_t* bytes, size_t size, const std::vector<int>& descriptors);
    void mark(uint64_t end, size_t size);
    void unmark();
    bool hold();
    bool sendHeld();
    bool passToWriter();
    void count(ptrdiff_t bytes);
    void drop();
    void end(const std::string& reason, bool cut);

    const runtime::UniqueFd mFd;
    std::atomic<bool> mOpen{true};
    std::atomic<bool> mCut{false};

    mutable std::mutex mLock;  ///< guards what follows; held during sends, which do not wait
    std::condition_variable mRoom;
    std::string mReason;
    bool mWithWriter = false;      ///< the writer thread looks after what is kept
    bool mHolding = false;         ///< all that is kept is held back, and was not tried yet
    bool mHeldWithWriter = false;  ///< the writer thread will send what is held if nobody does
    bool mFinishing = false;
    std::vector<uint8_t> mKept;  ///< from mBegin on; the byte there has the place mPlace
    size_t mBegin = 0;
    std::atomic<size_t> mWaiting{0};  ///< size of mKept from mBegin on; any thread may read it
    uint64_t mPlace = 0;
    std::deque<Mark> mMarks;
    std::deque<Attached> mAttached;
};

/** The limit that was set by `setStallLimit`. */
std::chrono::milliseconds stallLimit();

/** What a peer failed to do, with the limit: "peer has not taken a message within 5000 ms". */
std::string stallReason(const std::string& what);

}  // namespace hal
