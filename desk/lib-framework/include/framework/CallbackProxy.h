#pragma once

#include <shared_mutex>

#include <android/hidl/base/1.0/IBase.h>
#include <utils/StrongPointer.h>

/** Holds the callback that a client installed. Every operation is safe on any thread. */
class CallbackProxy {
public:
    virtual ~CallbackProxy() = default;

    /** Forgets the callback. */
    virtual void reset();

    /** Replaces the callback; null is allowed. The one before is let go outside the lock. */
    virtual void update(const android::sp<android::hidl::base::V1_0::IBase>& callback);

protected:
    /** Guards `mCallback`; taken for reading just to copy the reference out. */
    mutable std::shared_mutex mLock;
    android::sp<android::hidl::base::V1_0::IBase> mCallback;
};
