#pragma once

#include <functional>
#include <utility>

#include <hidl/Transport.h>

/** A connection without a socket, whose other end is a function. */
class Channel : public hal::Connection {
public:
    using Take = std::function<android::hardware::Return<void>(uint32_t code, hal::Parcel& args)>;

    explicit Channel(Take take) : Connection(-1), mTake(std::move(take)) {}

    android::hardware::Return<void> transact(uint32_t, uint32_t code, hal::Parcel& args,
                                             hal::Parcel*) override {
        return mTake(code, args);
    }

private:
    const Take mTake;
};
