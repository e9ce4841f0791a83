#include "proxies/HidlConversions.h"

#include <algorithm>
#include <iterator>

using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using vendor::lyr::modem::V1_0::BandsInfo;
using vendor::lyr::modem::V1_0::MbnInfo;
using vendor::lyr::modem::V1_0::RadioInfo;

namespace hidl_conversions {

namespace {

template <class T>
hidl_vec<T> viewOf(const T* values, size_t count) {
    hidl_vec<T> view;
    view.setToExternal(const_cast<T*>(values), count);  // callees only read it
    return view;
}

/** Takes `count` entries. The client checked the count; a bad one is cut to the list's size. */
template <size_t Capacity>
hidl_vec<uint32_t> toVector(const BandList<Capacity>& list) {
    return viewOf(list.bands, std::clamp<int32_t>(list.count, 0, Capacity));
}

}  // namespace

hidl_string toHidl(const std::string& text) {
    hidl_string view;
    view.setToExternal(text.c_str(), text.size());
    return view;
}

hidl_vec<uint8_t> toHidl(const std::vector<uint8_t>& bytes) {
    return viewOf(bytes.data(), bytes.size());
}

hidl_vec<hidl_string> toHidl(const std::vector<std::string>& texts) {
    hidl_vec<hidl_string> views;
    views.resize(texts.size());
    for (size_t i = 0; i < texts.size(); ++i) {
        views[i].setToExternal(texts[i].c_str(), texts[i].size());
    }
    return views;
}

MbnInfo toHidl(const PdcMbnInfo& info) {
    return {info.result, toHidl(info.configId)};
}

BandsInfo toHidl(const BandsInfoType& bands) {
    return {toVector(bands.list1), toVector(bands.list2), toVector(bands.list3),
            toVector(bands.list4), toVector(bands.list5)};
}

RadioInfo toHidl(const NetworkStatusInfoType& info) {
    RadioInfo report{};
    report.field1 = info.field1;
    report.field2 = info.field2;
    report.field3 = info.field3;
    report.field4 = info.field4;
    std::copy(std::begin(info.field5), std::end(info.field5), report.field5.data());
    report.field6 = info.field6;
    report.field7 = info.field7;
    std::copy(std::begin(info.field8), std::end(info.field8), report.field8.data());
    report.field9 = info.field9;
    hidl_vec<uint32_t>* const entries[] = {&report.field10Entry1, &report.field10Entry2,
                                           &report.field10Entry3, &report.field10Entry4};
    for (size_t i = 0; i < std::size(entries); ++i) {
        *entries[i] = viewOf(info.field10[i], std::size(info.field10[i]));
    }
    return report;
}

}  // namespace hidl_conversions
