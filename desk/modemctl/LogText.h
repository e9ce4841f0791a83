#pragma once

#include <cstdint>
#include <string_view>

#include "LogMethods.h"

/** The plug-in's own texts, as far as they tell what becomes of a request. */
namespace logs {

constexpr std::string_view PLUGIN_TAG = "LIB-OX-MODEM";

enum class Kind : uint8_t {
    UNKNOWN,         ///< cut, or no text that the plug-in has
    DETAIL,          ///< a text that changes nothing here
    LOADED,          ///< the process begins to load the plug-in
    INSTALLED,       ///< a client put its callbacks in place
    ENTERED,         ///< a request came: method, serial
    HANDLING,        ///< a handler thread begins with a message: method (if a client's), name
    SENT,            ///< an asynchronous request was accepted by the modem
    CALLED_BACK,     ///< the modem calls back
    TOKEN,           ///< an event answers a request: method, serial
    ANSWERED,        ///< method, serial, err
    DELIVERED,       ///< the answer went out: method
    EVENT_RECEIVED,  ///< any event of the modem, before it is told which
    EVENT,           ///< name
    CONNECTED,       ///< a service: name
    DISCONNECTED,    ///< a service: name
    BIND_FAILED,     ///< a service: name
    BIND_RETRIED,    ///< a service: name
    BIND_GIVEN_UP,   ///< a service: name
    AT_COMMAND,      ///< name
    AT_TOKEN,        ///< name: the token
    AT_OK,           ///< the modem was told that the command is done
    AT_ERROR         ///< the modem was told that it failed
};

/** What a text says; views point into it. */
struct Sign {
    Kind kind = Kind::UNKNOWN;
    MethodIndex method = NO_METHOD;
    int32_t serial = 0;
    int32_t err = 0;  ///< of the framework, 0 success
    std::string_view name;
    std::string_view text;  ///< without the prefix of the instance
    int instance = -1;      ///< -1: no prefix
};

Sign readText(std::string_view text);

/** How many lines the logger left out, when a line of another tag tells that. */
uint64_t lostLines(std::string_view tag, std::string_view text);

}  // namespace logs
