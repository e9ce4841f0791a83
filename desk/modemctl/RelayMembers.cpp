#include "RelayMembers.h"

#include <random>

#include "Relay.h"

namespace relay {

using hal::Connection;
using hal::Parcel;

Members::Members() {
    // Random, since answers to requests of a former relay may still come to this one: they must
    // not have the serial of a request of its own.
    std::random_device random;
    mNextSerial = std::uniform_int_distribution<int32_t>(1000, 899999)(random);
}

void Members::join(const std::shared_ptr<Connection>& connection, uint32_t interest,
                   uint32_t object) {
    mMembers[connection.get()] = {connection, interest, object};
}

std::shared_ptr<Connection> Members::leave(const Connection* connection) {
    const auto member = mMembers.find(connection);
    if (member == mMembers.end()) {
        return nullptr;
    }
    std::shared_ptr<Connection> left = std::move(member->second.connection);
    mMembers.erase(member);
    for (auto request = mUnderWay.begin(); request != mUnderWay.end();) {
        request = request->second == connection ? mUnderWay.erase(request) : std::next(request);
    }
    return left;
}

int32_t Members::freeSerial(uint32_t answer) {
    do {
        mNextSerial = mNextSerial % 999999 + 1;
    } while (mUnderWay.count({answer, mNextSerial}) != 0);
    return mNextSerial;
}

bool Members::admit(const Connection* connection, Key request) {
    if (mUnderWay.size() >= MAX_UNDER_WAY) {
        tell(connection, REFUSED, std::to_string(MAX_UNDER_WAY) + " requests are under way");
        return false;
    }
    if (!mUnderWay.insert({request, connection}).second) {
        tell(connection, REFUSED,
             "serial " + std::to_string(request.second) +
                     " is under way in another call of this method");
        return false;
    }
    tell(connection, ACCEPTED, request.second);
    return true;
}

void Members::await(const Connection* connection, Key request) {
    mUnderWay.insert({request, connection});
}

void Members::answer(Key request, const Parcel& args) {
    const auto asked = mUnderWay.find(request);
    const Connection* const owner = asked != mUnderWay.end() ? asked->second : nullptr;
    if (owner != nullptr) {
        mUnderWay.erase(asked);
    }
    for (const auto& [connection, member] : mMembers) {
        if (connection == owner || (member.interest & ALL_ANSWERS) != 0) {
            tell(member, ANSWER + request.first, args);
        }
    }
}

void Members::event(uint32_t code, const Parcel& args) {
    for (const auto& [connection, member] : mMembers) {
        if ((member.interest & EVENTS) != 0) {
            tell(member, EVENT + code, args);
        }
    }
}

void Members::tell(const Member& member, uint32_t code, const Parcel& args) {
    Parcel copy;
    copy.writeBytes(args.data(), args.size());
    // A member that has gone or was cut is told by its closed connection.
    (void)member.connection->transact(member.object, code, copy).isOk();
}

}  // namespace relay
