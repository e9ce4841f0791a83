#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <hidl/Table.h>

/** The seven clients, by the QMI service that each serves. */
enum Qmi : int { WDS = 1, DMS = 2, NAS = 3, AT = 8, SAR = 17, PDC = 36, VS = 228 };

/** How a request gets its answer. */
enum class Way {
    SYNC,    ///< the modem's call returns it
    ASYNC,   ///< the modem calls back with a response record
    TOKEN,   ///< a modem event carries the serial back
    FILE,    ///< from a list on the device's disk
    LOAD,    ///< after one modem call for each chunk of a file
    DELETE,  ///< after one modem call for each IMS profile
    CONFIRM  ///< closes the AT command that is open, if any
};

/** What an answer carries besides its info, and the modem's bytes that it is made of. */
enum class Payload {  // clang-format off
    NONE, WORD, BYTE, BYTE1, BYTE2, VERIFIED, DATA, BUILD, TEXT, BANDS, MBN, LIST
};  // clang-format on

/** Wording of a post that fails, as `QmiClient` has it. */
enum class Posts { BY_ID, BY_NAME, SHORT };

/** One request: who serves it, what the modem is asked, what comes back, and what is logged. */
struct Request {
    const char* name;
    Qmi service;
    int id;  ///< of its message
    Way way;
    /**
     * The modem's call: %N the argument N as it is, %-N as a signed byte, %#N as an identifier of
     * 124 bytes, %p both as a property record, %t the serial.
     */
    const char* call;
    Posts posts;
    const char* entry;  ///< the client's line, with % as above; null for none
    Payload payload = Payload::NONE;
    const char* done =
            nullptr;  ///< the handler's line after success; null: as in the vendor client
    const char* refused = nullptr;          ///< and after a refusal; "" for none
    const char* handler = nullptr;          ///< null: "handle", the name, "Message"
    int event = 0;                          ///< of a TOKEN, which carries its answer
    const hal::Method* method = nullptr;    ///< of IModem
    const hal::Method* response = nullptr;  ///< of IModemResponse
};

/** An argument: its number, or its bytes. */
struct Value {
    int64_t number = 0;
    std::string bytes{};
};

/** All, in the order of the interface. */
const std::vector<Request>& requests();

/** Puts the arguments into a call or a line of a request. */
std::string filled(const char* pattern, const Request& request, int32_t serial,
                   const std::vector<Value>& args);
