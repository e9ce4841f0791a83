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
        READY,     ///< requests can be made, and events come; once more after each LOST
        ACCEPTED,  ///< a request was made, under `serial`
        REFUSED,   ///< a request was not made, `text` tells why
        ANSWER,    ///< a call of IModemResponse
        EVENT,     ///< a call of IModemIndication
        NOTE,      ///< `text` for whoever watches
        LOST,      ///< the relay has gone, `text` tells how; READY follows, or `next` throws
        GONE,      ///< never seen outside: `next` throws
    };

    Kind kind;
    const hal::Method* method = nullptr;  ///< of an answer or event
    nlohmann::ordered_json arguments;     ///< of an answer or event
    int32_t serial = 0;
    std::string text;
};

/**
 * A member of an instance's relay, which holds the callbacks for all modemctl; see Relay.h. It
 * starts the relay when there is none, and another one when that goes. Used by one thread.
 */
class Session {
public:
    using Clock = std::chrono::steady_clock;

    /** @param interest bits of relay::Interest */
    Session(int instance, uint32_t interest);

    /** Leaves the relay, and waits until it has seen that, at most a second. */
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /** Makes a request with the serial that stands in its arguments; without `serial` the relay
     * chooses one. */
    void ask(const hal::Method& request, std::optional<int32_t> serial, hal::Parcel& arguments);

    /** The answer to a request made before LOST shall come here when it still comes. */
    void await(const hal::Method& request, int32_t serial);

    /**
     * The next arrival, none until the deadline; throws Failure with NO_SERVICE when there is no
     * service or it has gone.
     */
    std::optional<Arrival> next(Clock::time_point deadline);

    /** Why no request can be made so far, or the last relay went; empty when all is well. */
    std::string trouble() const;

private:
    class Inbox;
    class Member;

    void connect();
    void join(const std::shared_ptr<hal::Connection>& connection);
    void send(uint32_t code, hal::Parcel& arguments);

    const int mInstance;
    const uint32_t mInterest;
    std::shared_ptr<Inbox> mInbox;  ///< of this connection; shared with its reader thread
    std::shared_ptr<hal::Connection> mConnection;
    bool mReady = false;
    Clock::time_point mNextAttempt;
    Clock::time_point mAloneSince;  ///< no relay has been there since then
    std::string mTrouble;
};
