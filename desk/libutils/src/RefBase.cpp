#include <utils/RefBase.h>

namespace android {

RefBase::~RefBase() = default;

void RefBase::incStrong(const void* /*id*/) const {
    mStrong.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::decStrong(const void* /*id*/) const {
    if (mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

}  // namespace android
