#pragma once

#include <string>
#include <vector>

/** How a request gets its answer. */
enum class Style {
    SYNC,   ///< the modem call returns it
    ASYNC,  ///< the modem calls back with a response record
    TOKEN,  ///< a modem event brings it, tied by the token
    OWN,    ///< in a way of its own, which its own tests show
};

/** One request of the interface and what every layer makes of it. */
struct RequestRow {
    const char* method;
    std::vector<std::string> arguments;  ///< after the serial, as the client command takes them
    const char* client;                  ///< "Dms" for DmsQmiClient
    int id;
    const char* record;     ///< record type that the handler takes
    const char* entry;      ///< the client's line on entry, serial 7; "" for none
    const char* postTexts;  ///< "id", "name" or "short": wording of a post that fails
    Style style;
    const char* handler;             ///< name in the handler's lines
    const char* modemCall;           ///< as the scripted modem notes it
    std::vector<std::string> lines;  ///< the handler's lines when the modem takes the call
    const char* refused;             ///< the handler's line when it does not; "" for none
    const char* payload;             ///< JSON members of the answer, in success
    const char* empty;               ///< and otherwise
};

/** All 52, in the order of the interface. */
const std::vector<RequestRow>& requestTable();

/** Serial of every call that the table's texts speak of. */
constexpr int ROW_SERIAL = 7;

std::string abbreviationOf(const RequestRow& row);  ///< "DMS"
int serviceOf(const RequestRow& row);               ///< QMI service number

/** Answers and values of the scripted modem that the table's payloads tell. */
void scriptModem();
