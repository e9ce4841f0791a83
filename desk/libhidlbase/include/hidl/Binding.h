#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/Parcel.h>
#include <hidl/Transport.h>

/** What generated interfaces have in common. */
namespace hal {

/** Decodes the arguments of one method and calls it; false when they do not decode exactly. */
template <class I>
using Handler = bool (*)(I& object, Parcel& args);

/**
 * Specialised for each interface by generated code:
 *
 *     using Proxy = ...;               // derives from I and hal::Proxy
 *     static const Handler<I> METHODS[];  // by transaction code, from 1
 *     static const size_t METHOD_COUNT;
 */
template <class I>
struct Binding;

template <class I, class... Args>
bool invoke(I& object, android::hardware::Return<void> (I::*method)(Args...), Parcel& parcel) {
    std::tuple<std::decay_t<Args>...> args;
    const bool decoded =
            std::apply([&](auto&... arg) { return (decode(parcel, arg) && ...); }, args);
    if (!decoded || !parcel.atEnd()) {
        return false;
    }
    // The object lives in this process: a status that is not OK is its mistake and stops us here.
    std::apply([&](auto&... arg) { return (object.*method)(arg...); }, args).assertOk();
    return true;
}

template <class I, auto METHOD>
bool handle(I& object, Parcel& args) {
    return invoke(object, METHOD, args);
}

/** Serves an object of the interface. */
template <class I>
class InterfaceStub final : public Stub {
public:
    explicit InterfaceStub(const android::sp<I>& object) : mObject(object) {}

    bool onTransact(uint32_t code, Parcel& args, Parcel& /*reply*/) override {
        using android::hidl::base::V1_0::IBase;
        if (code == DEBUG_CODE) {
            return invoke<IBase>(*mObject, &IBase::debug, args);
        }
        return code != 0 && code <= Binding<I>::METHOD_COUNT &&
               Binding<I>::METHODS[code - 1](*mObject, args);
    }

private:
    const android::sp<I> mObject;
};

/** A proxy of the peer's object; null when the peer has too many. */
template <class I>
android::sp<I> makeProxy(const std::shared_ptr<Connection>& connection, uint32_t target) {
    if (!connection->holdProxy()) {
        return nullptr;
    }
    return new typename Binding<I>::Proxy(connection, target);
}

template <class I>
void encode(Parcel& parcel, const android::sp<I>& object) {
    parcel.write(object == nullptr
                         ? 0
                         : parcel.connection()->exportObject(new InterfaceStub<I>(object)));
}

template <class I>
[[nodiscard]] bool decode(Parcel& parcel, android::sp<I>& object) {
    uint32_t id = 0;
    if (!parcel.read(&id)) {
        return false;
    }
    object = id == 0 ? nullptr : makeProxy<I>(parcel.connection()->shared_from_this(), id);
    return id == 0 || object != nullptr;
}

/** `castFrom` of every interface. Needs no RTTI: the object itself knows its descriptors. */
template <class I>
android::sp<I> cast(const android::sp<android::hidl::base::V1_0::IBase>& parent) {
    return parent == nullptr ? nullptr : static_cast<I*>(parent->asInterface(I::descriptor));
}

/** `object` when it has that descriptor, else null. The same constant needs no look at its text. */
template <class I>
void* asInterface(I* object, const char* descriptor) {
    const bool same = descriptor == I::descriptor || strcmp(descriptor, I::descriptor) == 0;
    return same ? object : nullptr;
}

template <class I>
android::sp<I> getService(const std::string& name) {
    const auto connection = connectToService(I::descriptor, name);
    return connection == nullptr ? nullptr : makeProxy<I>(connection, SERVICE_TARGET);
}

}  // namespace hal
