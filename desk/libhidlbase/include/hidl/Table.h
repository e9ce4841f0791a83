#pragma once

#include <cstddef>
#include <cstdint>

/**
 * An interface definition as data, for what names, prints or encodes calls at run time. Written by
 * the generator; everything is constant and lives as long as the process. Absent texts are "".
 */
namespace hal {

struct Field;

/** A type and its shape; on the wire, each stands as `Parcel` tells. */
struct Type {
    enum class Kind {
        INT8,
        UINT8,
        INT16,
        UINT16,
        INT32,
        UINT32,
        INT64,
        UINT64,
        STRING,
        VEC,
        ARRAY,
        STRUCT,
        INTERFACE
    };

    Kind kind;
    const char* name;     ///< as the definition writes it: "int32_t", "vec<uint8_t>", "BandsInfo"
    const Type* element;  ///< of a VEC or an ARRAY
    size_t count;         ///< elements of an ARRAY
    const Field* fields;  ///< members of a STRUCT, in order
    size_t fieldCount;
};

/** A member of a struct or an argument of a method. */
struct Field {
    const char* name;
    const Type* type;
    const char* doc;
};

struct Method {
    const char* name;
    uint32_t code;  ///< transaction code: place in the declaration, counted from 1
    bool oneway;    ///< false: the caller waits for a reply, which is empty
    const Field* args;
    size_t argCount;
    const char* doc;  ///< without the lines about arguments
};

struct Interface {
    const char* name;        ///< "IModem"
    const char* descriptor;  ///< "vendor.lyr.modem@1.0::IModem"
    const Method* methods;   ///< in declaration order: methods[code - 1]
    size_t methodCount;
    const char* doc;
};

}  // namespace hal
