#pragma once

#include <hidl/Table.h>
#include <hidl/Transport.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

/** What comes to a client. */
struct Arrival {
    enum Kind {
        READY,    ///< requests can be made, and events come; once more after each LOST
        REFUSED,  ///< a request was not made, `text` says why
        NOTE,     ///< `text` for whoever watches
        ANSWER,   ///< a call of IModemResponse
        EVENT,    ///< a call of IModemIndication
        LOST,     ///< the connection ended, `text` says how; READY follows, or `next` throws
    };

    Kind kind;
    const hal::Method* method = nullptr;  ///< of an answer or event
    nlohmann::ordered_json arguments;     ///< of an answer or event
    std::string text;
};

/**
 * A member of an instance's host, which holds the callbacks for all modemctl; see
 * host/Sharing.h. Used by one thread.
 */
class Session {
public:
    using Clock = std::chrono::steady_clock;

    /**
     * @param interest bits of sharing::Interest
     * @param patience until then a host that is not there is waited for
     */
    Session(int instance, uint32_t interest, Clock::time_point patience);

    /** Leaves, and waits until the callbacks are free, at most a second. */
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /** Makes a request; its serial stands in its arguments. */
    void ask(const hal::Method& request, hal::Parcel& arguments);

    /** A serial that is hardly in use. */
    static int32_t freshSerial();

    /**
     * The next arrival, none until the deadline. Joins the host when it has to; throws Failure with
     * NO_SERVICE when there is none, or none that can be used.
     */
    std::optional<Arrival> next(Clock::time_point deadline);

private:
    class Inbox;
    class Member;

    std::optional<Arrival> connect(Clock::time_point deadline);
    void join(const std::shared_ptr<hal::Connection>& connection);
    std::optional<Arrival> ended();

    const int mInstance;
    const uint32_t mInterest;
    const Clock::time_point mPatience;
    std::shared_ptr<Inbox> mInbox;  ///< of this connection; shared with its reader thread
    std::shared_ptr<hal::Connection> mConnection;
    bool mReady = false;
    bool mWasReady = false;
    bool mNoted = false;  ///< that it waits
};

/**
 * Socket of the host's object for modemctl.
 *
 * @throws std::system_error when there is no usable runtime folder
 */
std::string sharingPath(int instance);

/** Who can be reached at a socket. */
struct Peer {
    int process;         ///< 0 for nobody
    std::string reason;  ///< why nobody
    bool isAbsence;      ///< it is just that nobody is there
};
Peer peerAt(const std::string& path);
