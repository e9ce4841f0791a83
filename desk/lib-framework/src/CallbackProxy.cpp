#include <framework/CallbackProxy.h>

#include <mutex>
#include <utility>

using android::sp;
using android::hidl::base::V1_0::IBase;

void CallbackProxy::reset() {
    update(nullptr);
}

void CallbackProxy::update(const sp<IBase>& callback) {
    sp<IBase> incoming = callback;
    {
        std::unique_lock lock(mLock);
        std::swap(mCallback, incoming);
    }
}
