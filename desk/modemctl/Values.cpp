#include "Values.h"

#include <hidl/Transport.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

#include "Api.h"
#include "Failure.h"

namespace values {

using hal::Parcel;
using nlohmann::ordered_json;
using Kind = hal::Type::Kind;

bool isBytes(const hal::Type& type) {
    return type.kind == Kind::VEC && type.element->kind == Kind::UINT8;
}

namespace {

/** Ends the reading of an argument; `encode` adds the argument's name to the reason. */
[[noreturn]] void refuse(const std::string& reason) {
    throw std::invalid_argument(reason);
}

template <class Integer>
void encodeInteger(Parcel& parcel, const std::string& text) {
    const bool hex = text.rfind("0x", 0) == 0;
    const char* end = text.data() + text.size();
    Integer value = 0;
    const auto [stop, error] =
            std::from_chars(text.data() + (hex ? 2 : 0), end, value, hex ? 16 : 10);
    const bool negative = text.size() > 1 && text[0] == '-' &&
                          text.find_first_not_of("0123456789", 1) == std::string::npos;
    if (!negative && (error == std::errc::invalid_argument || stop != end)) {
        refuse('\'' + text + "' is not a number");
    }
    if (error != std::errc()) {
        using Limits = std::numeric_limits<Integer>;
        refuse(text + " is not in " + std::to_string(Limits::min()) + ".." +
               std::to_string(Limits::max()));
    }
    parcel.write(value);
}

template <class Integer>
bool decodeInteger(Parcel& parcel, ordered_json& value) {
    Integer integer = 0;
    const bool read = parcel.read(&integer);
    value = integer;
    return read;
}

struct IntegerKind {
    void (*encode)(Parcel& parcel, const std::string& text);
    bool (*decode)(Parcel& parcel, ordered_json& value);
};

template <class Integer>
constexpr IntegerKind INTEGER{encodeInteger<Integer>, decodeInteger<Integer>};

/** In the order of `Kind`. */
constexpr IntegerKind INTEGERS[] = {INTEGER<int8_t>,   INTEGER<uint8_t>, INTEGER<int16_t>,
                                    INTEGER<uint16_t>, INTEGER<int32_t>, INTEGER<uint32_t>,
                                    INTEGER<int64_t>,  INTEGER<uint64_t>};
static_assert(std::size(INTEGERS) == static_cast<size_t>(Kind::STRING), "order of kinds");

const IntegerKind* integerKind(const hal::Type& type) {
    return type.kind < Kind::STRING ? &INTEGERS[static_cast<size_t>(type.kind)] : nullptr;
}

std::string fromHex(const std::string& digits) {
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        const char* pair = digits.data() + i;
        uint8_t byte = 0;
        if (i + 1 == digits.size() || std::from_chars(pair, pair + 2, byte, 16).ptr != pair + 2) {
            refuse("hex:" + digits + " is not pairs of digits 0-9 and a-f");
        }
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

std::string fromFile(const std::string& path) {
    constexpr size_t OTHER_ARGUMENTS = 1024;
    constexpr size_t LIMIT = hal::MAX_MESSAGE_SIZE - OTHER_ARGUMENTS;
    if (std::filesystem::is_directory(path)) {
        refuse('@' + path + " is a folder");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        refuse('@' + path + ": " + strerror(errno));
    }
    std::string bytes(LIMIT + 1, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.eof()) {
        refuse('@' + path + " is too big, at most " + std::to_string(LIMIT) +
               " bytes can go along");
    }
    bytes.resize(static_cast<size_t>(file.gcount()));
    return bytes;
}

std::string fromList(const std::string& text) {
    const ordered_json list = ordered_json::parse(text, nullptr, false);
    if (list.is_discarded()) {
        refuse(text + " is not a list such as [10,11]");
    }
    std::string bytes;
    for (const ordered_json& element : list) {
        if (!element.is_number_unsigned() || element.get<uint64_t>() > UINT8_MAX) {
            refuse(line(element) + " is not in 0..255");
        }
        bytes += static_cast<char>(element.get<uint8_t>());
    }
    return bytes;
}

std::string bytesOf(const std::string& text, bool isPath) {
    const auto starts = [&text](const char* with) { return text.rfind(with, 0) == 0; };
    if (starts("hex:")) {
        return fromHex(text.substr(4));
    }
    if (starts("text:")) {
        return text.substr(5);
    }
    if (starts("@")) {
        return fromFile(text.substr(1));
    }
    if (starts("[")) {
        return fromList(text);
    }
    if (!isPath) {
        refuse(text + " is none of hex:0a0b, @file, [10,11], text:abc");
    }
    return text;
}

void encodeArgument(Parcel& parcel, const hal::Field& field, const std::string& text) {
    if (const IntegerKind* integer = integerKind(*field.type)) {
        integer->encode(parcel, text);
    } else if (field.type->kind == Kind::STRING) {
        parcel.writeString(text);
    } else if (isBytes(*field.type)) {
        // On the wire a list of bytes and a text are the same: their count, then each byte.
        parcel.writeString(bytesOf(text, field.name == std::string("path")));
    } else {
        refuse(std::string("a ") + field.type->name + " cannot be given on the command line");
    }
}

bool decodeFields(Parcel& parcel, const hal::Field* fields, size_t count, ordered_json& object);

bool decodeValue(Parcel& parcel, const hal::Type& type, ordered_json& value) {
    if (const IntegerKind* integer = integerKind(type)) {
        return integer->decode(parcel, value);
    }
    if (type.kind == Kind::STRUCT) {
        return decodeFields(parcel, type.fields, type.fieldCount, value);
    }
    if (type.kind == Kind::STRING) {
        value = "";
        return parcel.readString(value.get_ptr<std::string*>());
    }
    size_t count = type.count;
    if (type.kind == Kind::INTERFACE || (type.kind == Kind::VEC && !parcel.readCount(&count, 1))) {
        return false;
    }
    value = ordered_json::array();
    for (size_t i = 0; i < count; ++i) {
        if (!decodeValue(parcel, *type.element, value.emplace_back())) {
            return false;
        }
    }
    return true;
}

bool decodeFields(Parcel& parcel, const hal::Field* fields, size_t count, ordered_json& object) {
    object = ordered_json::object();
    return std::all_of(fields, fields + count, [&](const hal::Field& field) {
        return decodeValue(parcel, *field.type, object[field.name]);
    });
}

std::string hex(const ordered_json& bytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string text = "hex:";
    for (const uint8_t byte : bytes) {
        text += {DIGITS[byte >> 4], DIGITS[byte & 15]};
    }
    return text;
}

bool isPlain(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return c > ' ' && c < 0x7f && strchr("\"\\[],=", c) == nullptr;
    });
}

}  // namespace

void encode(Parcel& parcel, const hal::Method& request, int32_t serial,
            const std::vector<std::string>& arguments) {
    const size_t takes = request.argCount - 1;
    parcel.write(serial);
    for (size_t i = 0; i < std::max(takes, arguments.size()); ++i) {
        const std::string name = i < takes ? request.args[i + 1].name : arguments[i];
        try {
            if (i >= takes || i >= arguments.size()) {
                refuse((i < takes ? "missing, it takes " : "too many, it takes ") +
                       (takes > 0 ? api::arguments(request) : "none"));
            }
            encodeArgument(parcel, request.args[i + 1], arguments[i]);
        } catch (const std::invalid_argument& error) {
            throw Failure(WRONG_USAGE, std::string(request.name) + ": argument " +
                                               std::to_string(i + 1) + " (" + name +
                                               "): " + error.what());
        }
    }
}

bool decode(Parcel& parcel, const hal::Method& method, ordered_json& arguments) {
    return decodeFields(parcel, method.args, method.argCount, arguments) && parcel.atEnd();
}

std::string text(const hal::Type& type, const ordered_json& value) {
    if (isBytes(type)) {
        return hex(value);
    }
    if (value.is_string() && isPlain(value)) {
        return value;
    }
    if (!value.is_array()) {
        return line(value);
    }
    std::string list;
    for (const ordered_json& element : value) {
        list += (list.empty() ? "" : ", ") + text(*type.element, element);
    }
    return '[' + list + ']';
}

std::string line(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace values
