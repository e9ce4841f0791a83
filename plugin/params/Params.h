#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <framework/Param.h>

/** An AT command event, copied out of the modem's event data. */
class AtCommandParam : public Param {
public:
    static const std::string& RTTI_TYPE;

    /** Copies `length` bytes; null data or no length leaves `data` empty. */
    AtCommandParam(const void* data, size_t length);

    const std::unique_ptr<const uint8_t[]> data;
    const uint64_t length;
};

class ModemPropertyParam : public SerialParam {
public:
    static const std::string& RTTI_TYPE;

    ModemPropertyParam(int32_t serial, const std::string& name, const std::string& value)
        : SerialParam(serial), name(name), value(value) {
        enableRtti(RTTI_TYPE);
    }

    const std::string name;
    const std::string value;
};

class NVItemParam : public SerialParam {
public:
    static const std::string& RTTI_TYPE;

    NVItemParam(int32_t serial, int32_t item, int8_t selector1, int8_t selector2,
                const std::vector<uint8_t>& data)
        : SerialParam(serial), item(item), selector1(selector1), selector2(selector2), data(data) {
        enableRtti(RTTI_TYPE);
    }
    NVItemParam(int32_t serial, int32_t item, const std::vector<uint8_t>& data)
        : NVItemParam(serial, item, 0, 0, data) {}

    const int32_t item;
    const int8_t selector1;
    const int8_t selector2;
    const std::vector<uint8_t> data;  ///< empty for a read
};

class EfsAccessParam : public SerialParam {
public:
    static const std::string& RTTI_TYPE;

    EfsAccessParam(int32_t serial, int32_t file, uint32_t subSelector,
                   const std::vector<uint8_t>& data)
        : SerialParam(serial), file(file), subSelector(subSelector), data(data) {
        enableRtti(RTTI_TYPE);
    }

    const int32_t file;               ///< file selector, or directory selector
    const uint32_t subSelector;       ///< 0 for a directory
    const std::vector<uint8_t> data;  ///< empty except for a write
};

class PrlParam : public SerialParam {
public:
    static const std::string& RTTI_TYPE;

    PrlParam(int32_t serial, uint8_t selector, const std::vector<uint8_t>& data)
        : SerialParam(serial), selector(selector), data(data) {
        enableRtti(RTTI_TYPE);
    }

    const uint8_t selector;
    const std::vector<uint8_t> data;
};

class GetMetaMbnInfoParam : public SerialParam {
public:
    static const std::string& RTTI_TYPE;

    GetMetaMbnInfoParam(int32_t serial, const std::vector<uint8_t>& data, int32_t length)
        : SerialParam(serial), data(data), length(length) {
        enableRtti(RTTI_TYPE);
    }

    const std::vector<uint8_t> data;  ///< the configuration's id
    const int32_t length;             ///< as the caller told it, not the vector's
};

class SelectedMbnParam : public SerialParam {
public:
    static const std::string& RTTI_TYPE;

    SelectedMbnParam(int32_t serial, int32_t type, const std::vector<uint8_t>& data)
        : SerialParam(serial), type(type), data(data) {
        enableRtti(RTTI_TYPE);
    }

    const int32_t type;
    const std::vector<uint8_t> data;  ///< the configuration's id
};

class SelectedMbnExtParam : public SerialParam {
public:
    static const std::string& RTTI_TYPE;

    SelectedMbnExtParam(int32_t serial, int32_t type, const std::vector<uint8_t>& data,
                        int32_t length)
        : SerialParam(serial), type(type), data(data), length(length) {
        enableRtti(RTTI_TYPE);
    }

    const int32_t type;
    const std::vector<uint8_t> data;  ///< the configuration's id
    const int32_t length;             ///< as the caller told it, not the vector's
};

class LoadMbnConfigParam : public SerialParam {
public:
    static const std::string& RTTI_TYPE;

    LoadMbnConfigParam(int32_t serial, const std::vector<uint8_t>& data)
        : SerialParam(serial), data(data) {
        enableRtti(RTTI_TYPE);
    }

    const std::vector<uint8_t> data;  ///< the path, without a terminating NUL
};
