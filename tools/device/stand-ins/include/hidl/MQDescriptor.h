#pragma once

// Generated headers include this one beside <hidl/HidlSupport.h>. Here stands what they name of the
// device's HIDL runtime and the plug-in does not use: it only has to be declared.

#include <hidl/HidlSupport.h>
#include <utils/RefBase.h>

namespace android::hardware {

struct hidl_death_recipient : public virtual RefBase {};

namespace details {
struct i_tag {};
}  // namespace details

template <class T>
std::string toString(const T& value);

}  // namespace android::hardware
