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
        INSTALLED,  ///< the callbacks are in place
        ANSWER,     ///< a call of IModemResponse
        EVENT,      ///< a call of IModemIndication
        DISPLACED,  ///< another client's callbacks took the place of ours
        CLOSED,     ///< never seen outside: `next` throws
    };

    Kind kind;
    const hal::Method* method = nullptr;  ///< of an answer or event
    nlohmann::ordered_json arguments;
};

/** A client of one instance, connected to the service itself and not to a relay. Any thread may
 * send; one thread does the rest. */
class Session {
public:
    using Clock = std::chrono::steady_clock;

    /** Connects; throws Failure with NO_SERVICE when there is nobody. */
    explicit Session(int instance);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /** Starts to install callbacks, in place of whosever are there; INSTALLED follows. */
    void install();

    /** Sends a request; throws Failure with NO_SERVICE when it did not get through. */
    void send(const hal::Method& request, hal::Parcel& arguments);

    /** The next arrival, none until the deadline; throws Failure when the service has gone. */
    std::optional<Arrival> next(Clock::time_point deadline);

private:
    class Inbox;
    class Callback;

    std::shared_ptr<Inbox> mInbox;  ///< shared with threads that may outlive the session
    std::shared_ptr<hal::Connection> mConnection;
    uint64_t mInstallation = 0;
};
