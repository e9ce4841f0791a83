#pragma once

#include <hidl/Table.h>

#include <nlohmann/json.hpp>

/**
 * Prints a call that came or was made to stdout and flushes it: text for a person, in colour when
 * stdout is a terminal, or one JSON object on a line.
 *
 * @param arguments as `values::decode` fills it
 */
void printCall(bool json, const hal::Method& method, const nlohmann::ordered_json& arguments);
