#include <hidl/Status.h>

#include <cstdlib>
#include <cstring>

#include "runtime/ErrorOutput.h"

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

namespace details {

return_status& return_status::operator=(return_status&& other) noexcept {
    stopIfUnchecked();
    mStatus = std::exchange(other.mStatus, Status());
    mChecked = std::exchange(other.mChecked, false);
    return *this;
}

void return_status::stop() const {
    runtime::ErrorOutput::get().print("HIDL return status not checked: %s", description().c_str());
    abort();
}

}  // namespace details

}  // namespace android::hardware
