#pragma once

#include <string>
#include <type_traits>
#include <vector>

#include <hidl/HidlSupport.h>
#include <vendor/lyr/modem/1.0/types.h>

#include "proxies/Payloads.h"

/**
 * Converts payloads to HIDL's types, for the length of a call: texts and lists are not copied, they
 * refer to the payload, which has to outlive them.
 */
namespace hidl_conversions {

template <class Integer, class = std::enable_if_t<std::is_integral_v<Integer>>>
Integer toHidl(Integer value) {
    return value;
}

android::hardware::hidl_string toHidl(const std::string& text);
android::hardware::hidl_vec<uint8_t> toHidl(const std::vector<uint8_t>& bytes);
android::hardware::hidl_vec<android::hardware::hidl_string> toHidl(
        const std::vector<std::string>& texts);
vendor::lyr::modem::V1_0::MbnInfo toHidl(const PdcMbnInfo& info);
vendor::lyr::modem::V1_0::BandsInfo toHidl(const BandsInfoType& bands);
vendor::lyr::modem::V1_0::RadioInfo toHidl(const NetworkStatusInfoType& info);

}  // namespace hidl_conversions
