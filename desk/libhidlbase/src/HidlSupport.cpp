#include <hidl/HidlSupport.h>

#include <cstdlib>
#include <cstring>
#include <limits>

#include "runtime/ErrorOutput.h"

namespace android::hardware {

namespace details {

uint32_t size32(size_t size) {
    if (size > std::numeric_limits<uint32_t>::max()) {
        fatal("HIDL container of " + std::to_string(size) + " elements");
    }
    return static_cast<uint32_t>(size);
}

void fatal(const std::string& message) {
    runtime::ErrorOutput::get().print("%s", message.c_str());
    abort();
}

}  // namespace details

hidl_handle& hidl_handle::operator=(const hidl_handle& other) {
    if (this == &other) {
        return *this;
    }
    native_handle_t* copy = nullptr;
    if (other.mHandle != nullptr) {
        copy = native_handle_clone(other.mHandle);
        if (copy == nullptr) {
            details::fatal(std::string("hidl_handle: descriptors cannot be duplicated: ") +
                           strerror(errno));
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

hidl_string::hidl_string(const char* text) {
    if (text != nullptr) {
        copyFrom(text, strlen(text));
    }
}

hidl_string& hidl_string::operator=(hidl_string&& other) noexcept {
    hidl_string taken(std::move(other));
    swap(taken);
    return *this;
}

void hidl_string::clear() {
    if (mOwnsBuffer) {
        delete[] mBuffer;
    }
    mBuffer = "";
    mSize = 0;
    mOwnsBuffer = false;
}

void hidl_string::setToExternal(const char* text, size_t size) {
    const uint32_t size32 = details::size32(size);
    if (text[size] != '\0') {
        details::fatal("hidl_string: external text without NUL");
    }
    clear();
    mBuffer = text;
    mSize = size32;
}

void hidl_string::copyFrom(const char* text, size_t size) {
    const uint32_t size32 = details::size32(size);
    if (size == 0) {
        return;
    }
    char* const buffer = new char[size + 1];
    memcpy(buffer, text, size);
    buffer[size] = '\0';
    mBuffer = buffer;
    mSize = size32;
    mOwnsBuffer = true;
}

void hidl_string::swap(hidl_string& other) noexcept {
    std::swap(mBuffer, other.mBuffer);
    std::swap(mSize, other.mSize);
    std::swap(mOwnsBuffer, other.mOwnsBuffer);
}

}  // namespace android::hardware
