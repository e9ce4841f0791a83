#pragma once

#include <sys/types.h>

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

class Incoming;
class Outgoing;
struct Message;

/** The service, as target of a call from its client. */
constexpr uint32_t SERVICE_TARGET = 1;

/** Code of `IBase::debug` in every interface; beyond the methods that are declared. */
constexpr uint32_t DEBUG_CODE = 0x0f444247;

/**
 * A longer message is not sent: the call fails with FAILED_TRANSACTION and the connection stays.
 * One that comes closes its connection. In bytes.
 */
constexpr size_t MAX_MESSAGE_SIZE = 1 << 20;

/**
 * Bytes that are kept for a peer beyond what its socket holds; a peer that leaves more is cut. Room
 * for 3,000 answers of 1 KiB, or for three messages of the greatest length and many short ones.
 */
constexpr size_t MAX_OUTGOING = 4 << 20;

/**
 * A thread that sends to a client with more bytes than these queued waits a moment, and not again
 * before the client has taken a message.
 */
constexpr size_t MAX_UNTAKEN = 64 << 10;

/** Bytes that a process keeps for all its peers; above, one with more than MAX_UNTAKEN is cut. */
constexpr size_t MAX_OUTGOING_IN_ALL = 16 << 20;

/** Proxies of one peer's objects that may live at a time; one more closes its connection. */
constexpr size_t MAX_PROXIES = 256;

/** Descriptors that a message may carry; a peer that sends more is cut. */
constexpr size_t MAX_DESCRIPTORS = 4;

/** Clients served at a time under one name; one more is told so and not served. */
constexpr int MAX_CLIENTS = 64;

/**
 * The time that a peer has, 5 s unless set, for the whole process: to take the oldest message that
 * waits for it, to complete a message that it began, and as a client to send its first message. A
 * peer that is late is cut. Taking a byte now and then is not taking: the message has to go as a
 * whole.
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

    /** Tells the peer of a fresh socket why it is not served; does not wait for it. */
    static void refuse(int socket, const std::string& reason);

    /** Takes over a connected socket; nothing is read before `start`. */
    explicit Connection(int fd);
    virtual ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /**
     * Starts the reader thread.
     *
     * @param ended runs last, when the connection is over
     * @param expectCall the peer has to send its first message within the stall limit
     * @throws std::system_error when there can be no thread
     */
    void start(std::function<void()> ended = nullptr, bool expectCall = false);

    /**
     * Makes an object a target for the peer, until the peer releases it or the connection ends.
     *
     * @return its id, to be passed as an interface argument; fresh for every export, from
     *         SERVICE_TARGET up
     */
    uint32_t exportObject(const android::sp<Stub>& object);

    /**
     * Calls the peer. Virtual, so that a double can take the place of the socket. What the socket
     * does not take at once is kept (see MAX_OUTGOING) and goes in the order of the calls. Only on
     * a connection made by `connect`, and only a thread that serves nobody, waits for room while
     * half of what may be kept is used.
     *
     * @param reply null for a oneway call, which returns when the message was sent or kept;
     *        otherwise the call waits for the reply and appends it here. Serving a call, too, one
     *        may wait: calls that come meanwhile are served afterwards, in order.
     * @return DEAD_OBJECT when the peer is gone or was cut, FAILED_TRANSACTION when the message is
     *         too long; it was not sent then, and the connection stays
     */
    virtual android::hardware::Return<void> transact(uint32_t target, uint32_t code, Parcel& args,
                                                     Parcel* reply = nullptr);

    /** Runs on the reader thread once the connection is over, or here and now when it is. */
    void onClosed(std::function<void()> callback);

    /** False as soon as a call can no longer reach the peer. */
    bool isOpen() const;

    /** The peer is the client here; not of a connection made by `connect`. */
    bool isServer() const { return !mToService; }

    /** Cuts the connection; calls under way fail with DEAD_OBJECT and this reason. */
    void close(const std::string& reason);

    /** Why this side cut the connection; empty when it did not. */
    std::string cutReason() const;

    /** Why calls can no longer reach the peer, as their statuses tell; empty while they can. */
    std::string endReason() const;

    /**
     * From now on the connection closes when neither proxies nor exported objects are left; what is
     * kept for the peer is sent before. The end of the process, too, leaves it a second for that.
     */
    void closeWhenUnused();

    /** Counts a proxy of the peer's; false when it has too many. */
    [[nodiscard]] bool holdProxy();

    /** Tells the peer that its object is no longer called. */
    void releaseProxy(uint32_t target);

    /** The next descriptor that came with the call that is being served; -1 without. */
    int takeDescriptor();

private:
    struct Waiter {
        Parcel* reply;
        bool done = false;
    };

    void run();
    void end();
    bool serve(const Message& message);
    bool serveCall(const Message& message);
    bool serveRelease(const Message& message);
    bool takeRefusal(const Message& message);
    bool takeReply(const Message& message);
    void readUntil(const Waiter& waiter);
    void closeIfUnused();

    android::hardware::Status send(uint32_t target, uint32_t code, uint32_t call, Parcel& args);
    android::hardware::Status deadObject();

    const std::shared_ptr<Outgoing> mOutgoing;
    const std::unique_ptr<Incoming> mIncoming;  ///< the reader thread's own
    std::function<void()> mThreadEnded;
    bool mToService = false;  ///< made by `connect`

    mutable std::mutex mLock;          ///< guards what follows; never held during a call
    std::condition_variable mReplied;  ///< or the connection is over
    bool mEnded = false;
    bool mCloseWhenUnused = false;
    std::map<uint32_t, android::sp<Stub>> mExports;
    std::map<uint32_t, Waiter*> mWaiters;
    std::vector<std::function<void()>> mOnClosed;
    uint32_t mNextExport = SERVICE_TARGET;
    uint32_t mNextCall = 1;
    size_t mProxies = 0;
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
    android::sp<Stub> object;  ///< what was to be published
};

/** Every registration of this process so far, refused ones too, in their order. Any thread. */
std::vector<Registration> registrations();

/** This thread reads a client's calls and serves one of them. */
bool servesClient();

/** Connects to a published service; null when there is none. Closes itself when unused. */
std::shared_ptr<Connection> connectToService(const std::string& descriptor,
                                             const std::string& name);

}  // namespace hal
