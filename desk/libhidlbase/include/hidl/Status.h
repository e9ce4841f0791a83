#pragma once

#include <string>
#include <utility>

#include <utils/Errors.h>

namespace android::hardware {

/** How a call went. Success takes no allocation. */
class Status {
public:
    Status() = default;
    static Status ok() { return Status(); }
    /** A failure of the transport, or OK. The desk's transport tells the reason as well. */
    static Status fromStatusT(status_t status, const std::string& message = "");

    bool isOk() const { return mStatus == OK; }
    status_t transactionError() const { return mStatus; }

    /** "No error", or kind and reason: "Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: ...'". */
    std::string description() const;

private:
    status_t mStatus = OK;
    std::string mMessage;
};

namespace details {

/**
 * A status that somebody has to look at: destroyed or overwritten with a failure that nobody asked
 * `isOk` about, it stops the process with a line on stderr that describes the failure.
 */
class return_status {
public:
    return_status() = default;
    return_status(Status status)  // NOLINT(google-explicit-constructor)
        : mStatus(std::move(status)) {}
    return_status(return_status&& other) noexcept { swap(other); }
    return_status& operator=(return_status&& other) noexcept;
    ~return_status() { stopIfUnchecked(); }

    bool isOk() const {
        mChecked = true;
        return mStatus.isOk();
    }

    /** Tells one failure from another; the status still has to be looked at with `isOk`. */
    bool isDeadObject() const { return mStatus.transactionError() == DEAD_OBJECT; }
    std::string description() const { return mStatus.description(); }

    /** Looks, and stops the process in the same way when the call failed. */
    void assertOk() const {
        if (!isOk()) {
            stop();
        }
    }

private:
    void stopIfUnchecked() const {
        if (!mChecked) {
            assertOk();
        }
    }

    [[noreturn]] void stop() const;

    void swap(return_status& other) noexcept {
        std::swap(mStatus, other.mStatus);
        std::swap(mChecked, other.mChecked);
    }

    Status mStatus;
    mutable bool mChecked = false;
};

}  // namespace details

/** Result of a call: a value, or the status of one that failed. Taking the value asserts success.
 */
template <class T>
class [[nodiscard]] Return : public details::return_status {
public:
    Return(T value) : mValue(std::move(value)) {}  // NOLINT(google-explicit-constructor)
    Return(Status status)                          // NOLINT(google-explicit-constructor)
        : return_status(std::move(status)), mValue() {}

    operator T() const& {  // NOLINT(google-explicit-constructor)
        assertOk();
        return mValue;
    }
    operator T() && {  // NOLINT(google-explicit-constructor)
        assertOk();
        return std::move(mValue);
    }

private:
    T mValue;
};

/** Result of a call that returns no value of its own. */
template <>
class [[nodiscard]] Return<void> : public details::return_status {
public:
    using return_status::return_status;
};

inline Return<void> Void() {
    return {};
}

}  // namespace android::hardware
