#pragma once

#include <hidl/Table.h>
#include <hidl/Transport.h>

#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

/** What comes to a client of the service. */
struct Arrival {
    enum Kind {
        ANSWER,     ///< a call of IModemResponse
        EVENT,      ///< a call of IModemIndication
        DISPLACED,  ///< another client's callbacks took the place of ours
        CLOSED,     ///< never seen outside: `next` throws
    };

    Kind kind;
    const hal::Method* method = nullptr;  ///< of an answer or event
    nlohmann::ordered_json arguments;
};

/**
 * A client of one instance, connected to the service itself and not through the host's sharing. Any
 * thread may send; one thread does the rest.
 */
class DirectSession {
public:
    using Clock = std::chrono::steady_clock;
    using Sink = std::function<void(const Arrival&)>;

    /**
     * Connects; throws Failure with NO_SERVICE when there is nobody.
     *
     * @param sink takes what comes, on threads of the connection, until that has ended; without
     *        one, `next` does
     */
    explicit DirectSession(int instance, Sink sink = nullptr);
    ~DirectSession();
    DirectSession(const DirectSession&) = delete;
    DirectSession& operator=(const DirectSession&) = delete;

    /**
     * Installs callbacks in place of whosever are there; events that were kept have come by then.
     * Throws Failure with NO_SERVICE when the service has gone.
     */
    void install();

    /** Sends a request; throws Failure with NO_SERVICE when it did not get through. */
    void send(const hal::Method& request, hal::Parcel& arguments);

    /** The next arrival, none until the deadline; throws Failure when the service has gone. */
    std::optional<Arrival> next(Clock::time_point deadline);

private:
    class Inbox;
    class Callback;

    void call(const hal::Method& method, hal::Parcel& arguments, hal::Parcel* reply);

    std::shared_ptr<Inbox> mInbox;  ///< shared with threads that may outlive the session
    std::shared_ptr<hal::Connection> mConnection;
    uint64_t mInstallation = 0;
};
