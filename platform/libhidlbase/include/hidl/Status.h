#pragma once

#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

namespace android {

using status_t = int32_t;

/** Errors are negative errno values, or these. */
enum : status_t {
    OK = 0,
    UNKNOWN_ERROR = std::numeric_limits<status_t>::min(),
    FAILED_TRANSACTION = UNKNOWN_ERROR + 2,
    BAD_VALUE = -EINVAL,
    ALREADY_EXISTS = -EEXIST,
    PERMISSION_DENIED = -EPERM,
    DEAD_OBJECT = -EPIPE,
};

namespace hardware {

/** How a call went. Success takes no allocation. */
class Status {
public:
    Status() = default;
    static Status ok() { return Status(); }
    /** A failure of the transport, or OK. */
    static Status fromStatusT(status_t status, const std::string& message = "");

    bool isOk() const { return mStatus == OK; }
    status_t transactionError() const { return mStatus; }

    /** "No error", or kind and reason: "Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: ...'". */
    std::string description() const;

private:
    status_t mStatus = OK;
    std::string mMessage;
};

template <class T>
class Return;

/** Result of a call that returns no value of its own. */
template <>
class [[nodiscard]] Return<void> {
public:
    Return() = default;
    Return(Status status) : mStatus(std::move(status)) {}  // NOLINT(google-explicit-constructor)

    bool isOk() const { return mStatus.isOk(); }
    bool isDeadObject() const { return mStatus.transactionError() == DEAD_OBJECT; }
    std::string description() const { return mStatus.description(); }

private:
    Status mStatus;
};

inline Return<void> Void() {
    return Return<void>();
}

}  // namespace hardware
}  // namespace android
