#pragma once

#include <atomic>
#include <cstdint>

#include <utils/StrongPointer.h>

namespace android {

/** An object that `sp` counts and that goes with the last of them. Made by new. */
class RefBase {
public:
    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

    /** One more, one less reference; `id` names its holder, for tracing. Any thread. */
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;

    int32_t getStrongCount() const { return mStrong; }

protected:
    RefBase() = default;
    virtual ~RefBase();

private:
    mutable std::atomic<int32_t> mStrong{0};
};

}  // namespace android
