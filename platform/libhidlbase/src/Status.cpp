#include <hidl/Status.h>

#include <cstring>

namespace android::hardware {

Status Status::fromStatusT(status_t error, const std::string& message) {
    Status status;
    status.mStatus = error;
    status.mMessage = message;
    return status;
}

std::string Status::description() const {
    if (isOk()) {
        return "No error";
    }
    const std::string kind = mStatus == DEAD_OBJECT          ? "DEAD_OBJECT"
                             : mStatus == FAILED_TRANSACTION ? "FAILED_TRANSACTION"
                                                             : strerror(-mStatus);
    return "Status(EX_TRANSACTION_FAILED): '" + kind + (mMessage.empty() ? "" : ": " + mMessage) +
           "'";
}

}  // namespace android::hardware
