#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <hidl/Parcel.h>
#include <hidl/Status.h>
#include <utils/RefBase.h>

/**
 * The desk's transport for HIDL calls: a Unix stream socket per client, both directions on it.
 * Interfaces use it through generated code; a tool that encodes calls itself uses it directly.
 */
namespace hal {

/** The service, as target of a call from its client. */
constexpr uint32_t SERVICE_TARGET = 1;

/** A longer message is not sent; one that comes closes its connection. In bytes. */
constexpr size_t MAX_MESSAGE_SIZE = 1 << 20;

/** Proxies of one peer's objects that may live at a time; one more closes its connection. */
constexpr size_t MAX_PROXIES = 256;

/** Clients served at a time by one process; one more is closed at once. */
constexpr int MAX_CLIENTS = 64;

/**
 * How long a peer may read nothing of what is waiting for it, or leave a message half sent, before
 * its connection is cut: 5 s unless set, for the whole process.
 */
void setStallLimit(std::chrono::milliseconds limit);

/**
 * Socket of a service in the runtime folder, whether or not it is there.
 *
 * @throws std::system_error when there is no usable runtime folder
 */
std::string servicePath(const std::string& descriptor, const std::string& name);

/** An object that serves calls from the other side of a connection. */
class Stub : public virtual android::RefBase {
public:
    /**
     * Serves one call, on the connection's reader thread.
     *
     * @param code place of the method in its interface, counted from 1; unchecked
     * @param args the arguments; gone as soon as a two-way call is made on the same connection
     * @param reply to be written when the method is two-way
     * @return false when the code is unknown or the arguments do not decode exactly, before
     *         anything was done; the connection is closed then
     */
    virtual bool onTransact(uint32_t code, Parcel& args, Parcel& reply) = 0;
};

/**
 * One connection. Any thread may call any method. A thread of its own reads and serves the calls
 * that come, one after the other; it keeps the connection alive until either side closed it. What
 * was exported on it is let go then.
 */
class Connection : public std::enable_shared_from_this<Connection> {
public:
    /**
     * Connects to a service. The connection stays until it is closed, also without this pointer.
     *
     * @param error takes the reason when the result is null; may be null
     */
    static std::shared_ptr<Connection> connect(const std::string& path, std::string* error);

    /** Takes over a connected socket; nothing is read before `start`. */
    explicit Connection(int fd) : mFd(fd) {}
    virtual ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /**
     * Starts the reader thread.
     *
     * @param ended runs last, when the connection is over
     * @throws std::system_error when there can be no thread
     */
    void start(std::function<void()> ended = nullptr);

    /**
     * Makes an object a target for the peer, until the peer releases it or the connection ends.
     *
     * @return its id, to be passed as an interface argument; fresh for every export, from
     *         SERVICE_TARGET up
     */
    uint32_t exportObject(const android::sp<Stub>& object);

    /**
     * Calls the peer. Virtual, so that a double can take the place of the socket.
     *
     * @param reply null for a oneway call, which returns when the message was written; otherwise
     *        the call waits for the reply and appends it here. Serving a call, too, one may wait:
     *        calls that come meanwhile are served afterwards, in order.
     * @return DEAD_OBJECT when the peer is gone or was cut, FAILED_TRANSACTION when the message is
     *         too long; it was not sent then, and the connection stays
     */
    virtual android::hardware::Return<void> transact(uint32_t target, uint32_t code, Parcel& args,
                                                     Parcel* reply = nullptr);

    /** Runs on the reader thread once the connection is over, or here and now when it is. */
    void onClosed(std::function<void()> callback);

    /** False as soon as a call can no longer reach the peer. */
    bool isOpen() const { return mOpen; }

    /** Cuts the connection; calls under way fail with DEAD_OBJECT and this reason. */
    void close(const std::string& reason);

    /** Why this side cut the connection; empty when it did not. */
    std::string cutReason() const;

    /** From now on the connection closes when neither proxies nor exported objects are left. */
    void closeWhenUnused();

    /** Counts a proxy of the peer's; false when it has too many. */
    [[nodiscard]] bool holdProxy();

    /** Tells the peer that its object is no longer called. */
    void releaseProxy(uint32_t target);

private:
    struct Message {
        uint32_t target;
        uint32_t code;
        uint32_t call;  ///< 0 oneway, otherwise what the reply has to carry
        const uint8_t* data;
        size_t size;
    };
    struct Waiter {
        Parcel* reply;
        bool done = false;
    };

    void run();
    void end();
    bool receive(size_t ahead, Message* message);
    bool fill(size_t ahead, size_t size);
    bool serve(const Message& message);
    bool serveCall(const Message& message);
    bool serveRelease(const Message& message);
    bool takeReply(const Message& message);
    void readUntil(const Waiter& waiter);
    void closeIfUnused();

    android::hardware::Status send(uint32_t target, uint32_t code, uint32_t call, Parcel& args);
    android::hardware::Status write(uint32_t target, uint32_t code, uint32_t call, Parcel& args);
    bool writeAll(const uint8_t* bytes, size_t size);
    void release(uint32_t target);
    void stopSending(const std::string& reason);
    android::hardware::Status deadObject() const;

    const int mFd;
    std::atomic<bool> mOpen{true};  ///< calls may be sent
    std::atomic<bool> mCut{false};  ///< nothing that comes is served any more
    std::function<void()> mThreadEnded;

    std::mutex mSendLock;  ///< held for one whole message

    mutable std::mutex mLock;  ///< guards what follows; never held during a call
    std::condition_variable mReplied;
    bool mEnded = false;
    bool mCloseWhenUnused = false;
    std::string mReason;
    std::map<uint32_t, android::sp<Stub>> mExports;
    std::map<uint32_t, Waiter*> mWaiters;
    std::vector<std::function<void()>> mOnClosed;
    uint32_t mNextExport = SERVICE_TARGET;
    uint32_t mNextCall = 1;
    size_t mProxies = 0;

    // The reader thread's own.
    std::vector<uint8_t> mBuffer;
    size_t mBegin = 0;
    size_t mFilled = 0;
};

/** What a generated client proxy is made of: the peer's object, released with the proxy. */
class Proxy {
public:
    /** The connection has counted it by `holdProxy`. */
    Proxy(std::shared_ptr<Connection> connection, uint32_t target);
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

protected:
    ~Proxy();

    template <class... Args>
    android::hardware::Return<void> callOneway(uint32_t code, const Args&... args) {
        Parcel parcel(mConnection.get());
        (encode(parcel, args), ...);
        return mConnection->transact(mTarget, code, parcel);
    }

    template <class... Args>
    android::hardware::Return<void> callAndWait(uint32_t code, const Args&... args) {
        Parcel parcel(mConnection.get());
        (encode(parcel, args), ...);
        return wait(code, parcel);
    }

private:
    android::hardware::Return<void> wait(uint32_t code, Parcel& args);

    const std::shared_ptr<Connection> mConnection;
    const uint32_t mTarget;
};

/**
 * Serves an object under a name, on threads of its own, until the process ends. The reason of a
 * failure goes to stderr, too.
 *
 * @return OK; ALREADY_EXISTS when a live process serves that name; otherwise a negative errno
 */
android::status_t publish(const std::string& descriptor, const std::string& name,
                          const android::sp<Stub>& object);

/** What became of one call of `publish` in this process. */
struct Registration {
    std::string descriptor;
    std::string name;
    android::status_t status;  ///< what `publish` returned
    std::string reason;        ///< empty when it succeeded
    pid_t holder;              ///< the process that serves the name; 0 unknown
};

/** Every registration of this process so far, refused ones too, in their order. Any thread. */
std::vector<Registration> registrations();

/** Connects to a published service; null when there is none. Closes itself when unused. */
std::shared_ptr<Connection> connectToService(const std::string& descriptor,
                                             const std::string& name);

}  // namespace hal
