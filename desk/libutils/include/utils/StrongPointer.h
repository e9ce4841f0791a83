#pragma once

#include <cstddef>
#include <utility>

namespace android {

/** A counted reference to an object that derives from RefBase, or null. */
template <class T>
class sp {
public:
    sp() = default;
    sp(std::nullptr_t) {}                        // NOLINT(google-explicit-constructor)
    sp(T* object) : mObject(object) { hold(); }  // NOLINT(google-explicit-constructor)
    sp(const sp& other) : mObject(other.mObject) { hold(); }
    sp(sp&& other) noexcept : mObject(std::exchange(other.mObject, nullptr)) {}
    template <class U>
    sp(const sp<U>& other) : mObject(other.mObject) {  // NOLINT(google-explicit-constructor)
        hold();
    }
    template <class U>
    sp(sp<U>&& other) noexcept  // NOLINT(google-explicit-constructor)
        : mObject(std::exchange(other.mObject, nullptr)) {}
    ~sp() {
        if (mObject != nullptr) {
            mObject->decStrong(this);
        }
    }

    sp& operator=(sp other) noexcept {
        std::swap(mObject, other.mObject);
        return *this;
    }

    void clear() { *this = sp(); }
    T* get() const { return mObject; }
    T& operator*() const { return *mObject; }
    T* operator->() const { return mObject; }
    explicit operator bool() const { return mObject != nullptr; }

private:
    template <class U>
    friend class sp;

    void hold() {
        if (mObject != nullptr) {
            mObject->incStrong(this);
        }
    }

    T* mObject = nullptr;
};

template <class T, class U>
bool operator==(const sp<T>& a, const sp<U>& b) {
    return a.get() == b.get();
}

template <class T, class U>
bool operator!=(const sp<T>& a, const sp<U>& b) {
    return a.get() != b.get();
}

template <class T>
bool operator==(const sp<T>& a, std::nullptr_t) {
    return a.get() == nullptr;
}

template <class T>
bool operator!=(const sp<T>& a, std::nullptr_t) {
    return a.get() != nullptr;
}

}  // namespace android
