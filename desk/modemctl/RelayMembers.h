#pragma once

#include <hidl/Transport.h>

#include <map>
#include <memory>
#include <string>
#include <utility>

namespace relay {

/**
 * The members of a relay, and which of them made each request that is under way. What it tells a
 * member is kept by that one's connection, so no call waits. Without a lock: its user has one.
 */
class Members {
public:
    using Key = std::pair<uint32_t, int32_t>;  ///< a request: code of its answer, serial

    Members();

    bool empty() const { return mMembers.empty(); }
    bool has(const hal::Connection* connection) const { return mMembers.count(connection) != 0; }

    void join(const std::shared_ptr<hal::Connection>& connection, uint32_t interest,
              uint32_t object);

    /**
     * Forgets a member and its requests.
     *
     * @return its connection, to be released without the lock; null for no member
     */
    std::shared_ptr<hal::Connection> leave(const hal::Connection* connection);

    /** A serial that no request with this answer has. */
    int32_t freeSerial(uint32_t answer);

    /** Enters a member's request and tells it ACCEPTED; otherwise tells it REFUSED. */
    bool admit(const hal::Connection* connection, Key request);

    /** Enters a request that a member made through another relay. */
    void await(const hal::Connection* connection, Key request);

    /** Gives an answer to the member that asked, and to those that want all. */
    void answer(Key request, const hal::Parcel& args);
    void event(uint32_t code, const hal::Parcel& args);

    /** Tells one member, or everybody, an integer or a text; `code` is of ToMember. */
    template <class Value>
    void tell(const hal::Connection* connection, uint32_t code, const Value& value) const;
    template <class Value>
    void tellAll(uint32_t code, const Value& value) const;

private:
    struct Member {
        std::shared_ptr<hal::Connection> connection;
        uint32_t interest;
        uint32_t object;
    };

    static void tell(const Member& member, uint32_t code, const hal::Parcel& args);

    std::map<const hal::Connection*, Member> mMembers;
    std::map<Key, const hal::Connection*> mUnderWay;
    int32_t mNextSerial;
};

template <class Value>
void Members::tell(const hal::Connection* connection, uint32_t code, const Value& value) const {
    hal::Parcel args;
    if constexpr (std::is_integral_v<Value>) {
        args.write(static_cast<int32_t>(value));
    } else {
        args.writeString(value);
    }
    tell(mMembers.at(connection), code, args);
}

template <class Value>
void Members::tellAll(uint32_t code, const Value& value) const {
    for (const auto& [connection, member] : mMembers) {
        tell(connection, code, value);
    }
}

}  // namespace relay
