#pragma once

#include <hidl/Parcel.h>
#include <hidl/Table.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

/** Arguments of calls: from the command line into a parcel, and from a parcel into JSON. */
namespace values {

/**
 * Writes the arguments of a request behind its serial.
 *
 * @throws Failure with WRONG_USAGE, which names the argument and what is allowed
 */
void encode(hal::Parcel& parcel, const hal::Method& request, int32_t serial,
            const std::vector<std::string>& arguments);

/** Reads the arguments of a call, keys in their order; false when the parcel holds other than it.
 */
bool decode(hal::Parcel& parcel, const hal::Method& method, nlohmann::ordered_json& arguments);

/** A list of bytes. */
bool isBytes(const hal::Type& type);

/** One value for a person: bytes as hex:0a0b, texts quoted where it takes that, lists in []. */
std::string text(const hal::Type& type, const nlohmann::ordered_json& value);

/** JSON on one line; bytes that are not UTF-8 show as replacement characters. */
std::string line(const nlohmann::ordered_json& value);

}  // namespace values
