#pragma once

#include <hidl/Table.h>

#include <nlohmann/json.hpp>

/** Makes a write to stdout that fails an exception, which tells why. */
void checkOutput();

/**
 * Prints a call that came or was made to stdout and flushes it: text for a person, in colour when
 * stdout is a terminal, or one JSON object on a line.
 *
 * @param arguments as `values::decode` fills it
 * @param stamp the time goes in front: of day, or ISO 8601 in JSON
 */
void printCall(bool json, const hal::Method& method, const nlohmann::ordered_json& arguments,
               bool stamp = false);
