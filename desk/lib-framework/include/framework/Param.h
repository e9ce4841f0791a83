#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <framework/RttiContext.h>

/** Base of the records that a `Message` carries. Records do not change once they are built. */
class Param : public RttiContext {};

/** A record that belongs to a caller's request. */
class SerialParam : public Param {
public:
    static const std::string& RTTI_TYPE;

    explicit SerialParam(int32_t serial) : serial(serial) { enableRtti(RTTI_TYPE); }

    /** The request's serial; -1 for internal requests that answer nobody. */
    const int32_t serial;
};

class SerialVoidParam : public SerialParam {
public:
    static const std::string& RTTI_TYPE;

    explicit SerialVoidParam(int32_t serial) : SerialParam(serial) { enableRtti(RTTI_TYPE); }
};

/** A serial and one value; the named records below add their type names. */
template <class T>
class SerialDataParam : public SerialParam {
public:
    SerialDataParam(int32_t serial, T value) : SerialParam(serial), value(std::move(value)) {}

    const T value;
};

class SerialIntParam : public SerialDataParam<int32_t> {
public:
    static const std::string& RTTI_TYPE;

    SerialIntParam(int32_t serial, int32_t value) : SerialDataParam(serial, value) {
        enableRtti(RTTI_TYPE);
    }
};

class SerialUintParam : public SerialDataParam<uint32_t> {
public:
    static const std::string& RTTI_TYPE;

    SerialUintParam(int32_t serial, uint32_t value) : SerialDataParam(serial, value) {
        enableRtti(RTTI_TYPE);
    }
};

class SerialBoolParam : public SerialDataParam<bool> {
public:
    static const std::string& RTTI_TYPE;

    SerialBoolParam(int32_t serial, bool value) : SerialDataParam(serial, value) {
        enableRtti(RTTI_TYPE);
    }
};

class SerialByteParam : public SerialDataParam<uint8_t> {
public:
    static const std::string& RTTI_TYPE;

    SerialByteParam(int32_t serial, uint8_t value) : SerialDataParam(serial, value) {
        enableRtti(RTTI_TYPE);
    }
};

class SerialStringParam : public SerialDataParam<std::string> {
public:
    static const std::string& RTTI_TYPE;

    SerialStringParam(int32_t serial, std::string value)
        : SerialDataParam(serial, std::move(value)) {
        enableRtti(RTTI_TYPE);
    }
};

class SerialByteArrayParam : public SerialDataParam<std::vector<uint8_t>> {
public:
    static const std::string& RTTI_TYPE;

    SerialByteArrayParam(int32_t serial, std::vector<uint8_t> value)
        : SerialDataParam(serial, std::move(value)) {
        enableRtti(RTTI_TYPE);
    }
};
