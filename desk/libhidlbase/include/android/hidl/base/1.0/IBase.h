#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android::hidl::base::V1_0 {

/** What every interface derives from. */
struct IBase : public virtual ::android::RefBase {
    /**
     * This object as one of its interfaces, for `castFrom` of generated code.
     *
     * @param descriptor the wanted interface's own constant, or a text of the same content
     * @return pointer to that interface's class, or null when the object has no such interface
     */
    virtual void* asInterface(const char* /*descriptor*/) { return nullptr; }

    /**
     * Writes what there is to tell of the object's state, for the eyes of a developer.
     *
     * @param fd descriptor 0 takes the text; the caller's, open during the call
     */
    virtual ::android::hardware::Return<void> debug(
            const ::android::hardware::hidl_handle& /*fd*/,
            const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& /*options*/) {
        return ::android::hardware::Void();
    }
};

}  // namespace android::hidl::base::V1_0
