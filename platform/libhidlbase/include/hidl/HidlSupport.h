#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <cutils/native_handle.h>
#include <hidl/Status.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {

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

    const native_handle_t* mHandle = nullptr;
    bool mOwnsHandle = false;
};
static_assert(sizeof(hidl_handle) == 16, "as code that the device's generator writes asserts");

/** Text of any bytes. */
class hidl_string {
public:
    hidl_string() = default;
    hidl_string(const char* text) : mText(text) {}  // NOLINT(google-explicit-constructor)
    hidl_string(const char* text, size_t size) : mText(text, size) {}
    hidl_string(std::string text)  // NOLINT(google-explicit-constructor)
        : mText(std::move(text)) {}

    operator std::string() const { return mText; }  // NOLINT(google-explicit-constructor)
    const char* c_str() const { return mText.c_str(); }
    size_t size() const { return mText.size(); }
    bool empty() const { return mText.empty(); }
    void clear() { mText.clear(); }

    friend bool operator==(const hidl_string& a, const hidl_string& b) {
        return a.mText == b.mText;
    }
    friend bool operator!=(const hidl_string& a, const hidl_string& b) { return !(a == b); }
    friend bool operator<(const hidl_string& a, const hidl_string& b) { return a.mText < b.mText; }

private:
    std::string mText;
};

/** A buffer of its own, or somebody else's that outlives it. A copy always has its own. */
template <class T>
class hidl_vec {
public:
    hidl_vec() = default;
    hidl_vec(std::initializer_list<T> list) { assign(list.begin(), list.size()); }
    hidl_vec(const std::vector<T>& other) {  // NOLINT(google-explicit-constructor)
        assign(other.data(), other.size());
    }
    hidl_vec(const hidl_vec& other) { assign(other.mData, other.mSize); }
    hidl_vec(hidl_vec&& other) noexcept { swap(other); }
    ~hidl_vec() { release(); }

    hidl_vec& operator=(const hidl_vec& other) {
        hidl_vec copy(other);
        swap(copy);
        return *this;
    }

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
        resized.allocate(size);
        std::copy_n(mData, std::min(size, mSize), resized.mData);
        swap(resized);
    }

    /** Stands for elements elsewhere; with `shouldOwn` they were made by new[] and are freed. */
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        release();
        mData = data;
        mSize = size;
        mOwns = shouldOwn;
    }

    T* data() { return mData; }
    const T* data() const { return mData; }
    size_t size() const { return mSize; }
    T& operator[](size_t index) { return mData[index]; }
    const T& operator[](size_t index) const { return mData[index]; }
    T* begin() { return mData; }
    T* end() { return mData + mSize; }
    const T* begin() const { return mData; }
    const T* end() const { return mData + mSize; }

    bool operator==(const hidl_vec& other) const {
        return std::equal(begin(), end(), other.begin(), other.end());
    }
    bool operator!=(const hidl_vec& other) const { return !(*this == other); }

private:
    void allocate(size_t size) {
        mData = size == 0 ? nullptr : new T[size]();
        mSize = size;
        mOwns = true;
    }

    void assign(const T* data, size_t size) {
        allocate(size);
        std::copy_n(data, size, mData);
    }

    void release() {
        if (mOwns) {
            delete[] mData;
        }
    }

    void swap(hidl_vec& other) noexcept {
        std::swap(mData, other.mData);
        std::swap(mSize, other.mSize);
        std::swap(mOwns, other.mOwns);
    }

    T* mData = nullptr;
    size_t mSize = 0;
    bool mOwns = true;
};

/** A fixed number of elements. */
template <class T, size_t N>
class hidl_array {
public:
    T* data() { return mElements; }
    const T* data() const { return mElements; }
    static constexpr size_t size() { return N; }
    T& operator[](size_t index) { return mElements[index]; }
    const T& operator[](size_t index) const { return mElements[index]; }

    bool operator==(const hidl_array& other) const {
        return std::equal(mElements, mElements + N, other.mElements);
    }
    bool operator!=(const hidl_array& other) const { return !(*this == other); }

private:
    T mElements[N] = {};
};

}  // namespace hardware
}  // namespace android
