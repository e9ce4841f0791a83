#include "params/Params.h"

#include <cstring>

// Never destroyed: handlers and modem threads run while the process exits.
const std::string& AtCommandParam::RTTI_TYPE = *new std::string("AtCommandParam");
const std::string& ModemPropertyParam::RTTI_TYPE = *new std::string("ModemPropertyParam");
const std::string& NVItemParam::RTTI_TYPE = *new std::string("NVItemParam");
const std::string& EfsAccessParam::RTTI_TYPE = *new std::string("EfsAccessParam");
const std::string& PrlParam::RTTI_TYPE = *new std::string("PrlParam");
const std::string& GetMetaMbnInfoParam::RTTI_TYPE = *new std::string("GetMetaMbnInfoParam");
const std::string& SelectedMbnParam::RTTI_TYPE = *new std::string("SelectedMbnParam");
const std::string& SelectedMbnExtParam::RTTI_TYPE = *new std::string("SelectedMbnExtParam");
const std::string& LoadMbnConfigParam::RTTI_TYPE = *new std::string("LoadMbnConfigParam");

namespace {

std::unique_ptr<const uint8_t[]> copyOf(const void* data, size_t length) {
    if (data == nullptr || length == 0) {
        return nullptr;
    }
    std::unique_ptr<uint8_t[]> copy(new uint8_t[length]);
    memcpy(copy.get(), data, length);
    return copy;
}

}  // namespace

AtCommandParam::AtCommandParam(const void* data, size_t length)
    : data(copyOf(data, length)), length(length) {
    enableRtti(RTTI_TYPE);
}
