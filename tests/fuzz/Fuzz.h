#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <hidl/Transport.h>
#include <vendor/lyr/modem/1.0/transport.h>

#include "tests/support/Channel.h"

/** Ends the process with a reason, so that the fuzzer keeps the input. */
inline void require(bool holds, const char* reason) {
    if (!holds) {
        fprintf(stderr, "does not hold: %s\n", reason);
        abort();
    }
}

/** An input, taken apart from its front; it gives zeros once it is empty. */
class Input {
public:
    Input(const uint8_t* data, size_t size) : mRest(reinterpret_cast<const char*>(data), size) {}

    bool isEmpty() const { return mRest.empty(); }
    std::string bytes(size_t size) {
        const std::string front = mRest.substr(0, size);
        mRest.erase(0, size);
        return front;
    }
    uint8_t byte() {
        const std::string front = bytes(1);
        return front.empty() ? 0 : static_cast<uint8_t>(front[0]);
    }

private:
    std::string mRest;
};

/** Serves an interface by a proxy of it: what was decoded is encoded again, and goes to `take`. */
template <class Interface>
android::sp<hal::Stub> mirror(const Channel::Take& take) {
    using Proxy = typename hal::Binding<Interface>::Proxy;
    return new hal::InterfaceStub<Interface>(new Proxy(std::make_shared<Channel>(take), 1));
}
