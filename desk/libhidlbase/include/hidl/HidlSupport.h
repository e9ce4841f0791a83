#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <cutils/native_handle.h>
#include <hidl/Status.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {

namespace details {

/** A size as containers keep it; stops the process when it takes more than 32 bits. */
uint32_t size32(size_t size);

/** Stops the process with a line on stderr. */
[[noreturn]] void fatal(const std::string& message);

}  // namespace details

/** File descriptors and numbers as an argument, or none. A copy has duplicates of its own. */
class hidl_handle {
public:
    hidl_handle() = default;
    hidl_handle(const native_handle_t* handle)  // NOLINT(google-explicit-constructor)
        : mHandle(handle) {}
    hidl_handle(const hidl_handle& other) { *this = other; }
    hidl_handle(hidl_handle&& other) noexcept { *this = std::move(other); }
    ~hidl_handle() { release(); }

    /** Stops the process when the descriptors cannot be duplicated. */
    hidl_handle& operator=(const hidl_handle& other);
    hidl_handle& operator=(hidl_handle&& other) noexcept;

    /** Stands for a handle of somebody else, who keeps it as long as this object needs it. */
    hidl_handle& operator=(const native_handle_t* handle);

    /** The same; with `shouldOwn`, closes the descriptors and frees the handle at the end. */
    void setTo(native_handle_t* handle, bool shouldOwn = false);

    const native_handle_t* getNativeHandle() const { return mHandle; }
    const native_handle_t* operator->() const { return mHandle; }
    operator const native_handle_t*() const {  // NOLINT(google-explicit-constructor)
        return mHandle;
    }

private:
    void release();

    alignas(8) const native_handle_t* mHandle = nullptr;
    bool mOwnsHandle = false;
};

/** Text of any bytes, with a NUL behind it. A buffer of its own, or somebody else's. */
class hidl_string {
public:
    hidl_string() = default;
    /** A null pointer makes an empty text. */
    hidl_string(const char* text);  // NOLINT(google-explicit-constructor)
    hidl_string(const char* text, size_t size) { copyFrom(text, size); }
    hidl_string(const std::string& text)  // NOLINT(google-explicit-constructor)
        : hidl_string(text.data(), text.size()) {}
    hidl_string(const hidl_string& other) : hidl_string(other.mBuffer, other.mSize) {}
    hidl_string(hidl_string&& other) noexcept { swap(other); }
    ~hidl_string() { clear(); }

    /** Without memory for the copy it throws std::bad_alloc, and keeps the text that it had. */
    hidl_string& operator=(const hidl_string& other) { return *this = hidl_string(other); }
    hidl_string& operator=(const char* text) { return *this = hidl_string(text); }
    hidl_string& operator=(const std::string& text) { return *this = hidl_string(text); }
    hidl_string& operator=(hidl_string&& other) noexcept;

    operator std::string() const {
        return {mBuffer, mSize};
    }  // NOLINT(google-explicit-constructor)
    const char* c_str() const { return mBuffer; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    void clear();

    /** Stands for a text elsewhere that outlives it; stops the process when no NUL ends that. */
    void setToExternal(const char* text, size_t size);

private:
    void copyFrom(const char* text, size_t size);
    void swap(hidl_string& other) noexcept;

    alignas(8) const char* mBuffer = "";
    uint32_t mSize = 0;  ///< in bytes, without the NUL
    bool mOwnsBuffer = false;
};

/** Texts compare up to the first NUL. */
inline bool operator==(const hidl_string& a, const hidl_string& b) {
    return strcmp(a.c_str(), b.c_str()) == 0;
}
inline bool operator!=(const hidl_string& a, const hidl_string& b) {
    return !(a == b);
}
inline bool operator<(const hidl_string& a, const hidl_string& b) {
    return strcmp(a.c_str(), b.c_str()) < 0;
}

/** A buffer of its own, or somebody else's that outlives it. A copy always has its own. */
template <class T>
class hidl_vec {
public:
    hidl_vec() = default;
    hidl_vec(std::initializer_list<T> list) : hidl_vec() { copyFrom(list.begin(), list.size()); }
    hidl_vec(const std::vector<T>& other) : hidl_vec() {  // NOLINT(google-explicit-constructor)
        copyFrom(other.data(), other.size());
    }
    hidl_vec(const hidl_vec& other) : hidl_vec() { copyFrom(other.mBuffer, other.mSize); }
    hidl_vec(hidl_vec&& other) noexcept { swap(other); }
    ~hidl_vec() { release(); }

    hidl_vec& operator=(const hidl_vec& other) { return *this = hidl_vec(other); }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        hidl_vec taken(std::move(other));
        swap(taken);
        return *this;
    }

    operator std::vector<T>() const {  // NOLINT(google-explicit-constructor)
        return std::vector<T>(begin(), end());
    }

    /** Keeps the elements that fit; new ones are zero. The buffer is its own afterwards. */
    void resize(size_t size) {
        hidl_vec resized;
        resized.setToExternal(size == 0 ? nullptr : new T[size](), size, true);
        std::copy_n(mBuffer, std::min(size, this->size()), resized.mBuffer);
        swap(resized);
    }

    /** Stands for elements elsewhere; with `shouldOwn` they were made by new[] and are freed. */
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        release();
        mBuffer = data;
        mSize = details::size32(size);
        mOwnsBuffer = shouldOwn;
    }

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    size_t size() const { return mSize; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }
    T* begin() { return mBuffer; }
    T* end() { return mBuffer + mSize; }
    const T* begin() const { return mBuffer; }
    const T* end() const { return mBuffer + mSize; }

    bool operator==(const hidl_vec& other) const {
        return std::equal(begin(), end(), other.begin(), other.end());
    }
    bool operator!=(const hidl_vec& other) const { return !(*this == other); }

private:
    void copyFrom(const T* data, size_t size) {
        setToExternal(size == 0 ? nullptr : new T[size], size, true);
        std::copy_n(data, size, mBuffer);
    }

    void release() {
        if (mOwnsBuffer) {
            delete[] mBuffer;
        }
    }

    void swap(hidl_vec& other) noexcept {
        std::swap(mBuffer, other.mBuffer);
        std::swap(mSize, other.mSize);
        std::swap(mOwnsBuffer, other.mOwnsBuffer);
    }

    alignas(8) T* mBuffer = nullptr;
    uint32_t mSize = 0;
    bool mOwnsBuffer = true;
};

/** A fixed number of elements; numbers are not set by the default constructor. */
template <class T, size_t N>
class hidl_array {
public:
    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    static constexpr size_t size() { return N; }
    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }

    bool operator==(const hidl_array& other) const {
        return std::equal(mBuffer, mBuffer + N, other.mBuffer);
    }
    bool operator!=(const hidl_array& other) const { return !(*this == other); }

private:
    T mBuffer[N];
};

// Generated code asserts the offsets and sizes of structs, which these make up.
static_assert(sizeof(hidl_handle) == 16 && sizeof(hidl_string) == 16 &&
              sizeof(hidl_vec<char>) == 16);

}  // namespace hardware
}  // namespace android
