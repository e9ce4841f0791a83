#pragma once

#include <cstdint>
#include <string_view>

/** The requests of the interface, by what the plug-in's log calls them. */
namespace logs {

/** Place of a request in the interface's table. */
using MethodIndex = int16_t;

constexpr MethodIndex NO_METHOD = -1;

const char* methodName(MethodIndex method);

// NO_METHOD when there is no such request.

MethodIndex methodIndex(std::string_view name);

/** @param name with a capital letter, as functions have it behind "respond" or "handle" */
MethodIndex methodIndexOfCapital(std::string_view name);

/** @param client a class of the plug-in, or the name of its service in capitals */
MethodIndex methodOfMessage(std::string_view client, int id);

}  // namespace logs
