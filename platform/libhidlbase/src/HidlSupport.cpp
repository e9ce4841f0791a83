#include <hidl/HidlSupport.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace android::hardware {

hidl_handle& hidl_handle::operator=(const hidl_handle& other) {
    if (this == &other) {
        return *this;
    }
    native_handle_t* copy = nullptr;
    if (other.mHandle != nullptr) {
        copy = native_handle_clone(other.mHandle);
        if (copy == nullptr) {
            fprintf(stderr, "hidl_handle: descriptors cannot be duplicated: %s\n", strerror(errno));
            abort();
        }
    }
    setTo(copy, true);
    return *this;
}

hidl_handle& hidl_handle::operator=(hidl_handle&& other) noexcept {
    if (this != &other) {
        release();
        mHandle = std::exchange(other.mHandle, nullptr);
        mOwnsHandle = std::exchange(other.mOwnsHandle, false);
    }
    return *this;
}

hidl_handle& hidl_handle::operator=(const native_handle_t* handle) {
    release();
    mHandle = handle;
    return *this;
}

void hidl_handle::setTo(native_handle_t* handle, bool shouldOwn) {
    release();
    mHandle = handle;
    mOwnsHandle = shouldOwn;
}

void hidl_handle::release() {
    if (mOwnsHandle && mHandle != nullptr) {
        native_handle_close(mHandle);
        native_handle_delete(const_cast<native_handle_t*>(mHandle));
    }
    mHandle = nullptr;
    mOwnsHandle = false;
}

}  // namespace android::hardware
