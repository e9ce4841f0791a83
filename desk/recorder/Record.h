#pragma once

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <string>
#include <vector>

#include "modem_api.h"

/** What a recording and its replay have in common: how the modem's memory stands as JSON. */
namespace recording {

enum class Kind { UNSIGNED, SIGNED, TOKEN, HANDLE, TEXT, BYTES, TOKENS };

struct Field {
    const char* name;
    size_t offset;
    size_t size;   ///< of one element
    size_t count;  ///< of elements
    Kind kind;
    bool isPrivate;
};

struct Record {
    std::vector<Field> fields;
    size_t size;
};

/** The record that an event carries; null for an event that the header does not know. */
const Record* recordOfEvent(modem_api_event_type event);

inline size_t bounded(size_t length, size_t room) {
    return std::min(length, room);
}

/** How private contents are told. */
struct Privacy {
    bool takesAll = false;
    bool isReplay = false;  ///< compared by length; handles are numbers already
    uint64_t key[2] = {};   ///< of the checksum; known to the recording process alone
};

/** Keyed checksum (SipHash-2-4) of private contents, so that equal ones are seen to be equal. */
uint64_t checksum(const uint64_t (&key)[2], const void* data, size_t size);

/** The members of one JSON object. A null pointer is told as null. */
class Writer {
public:
    explicit Writer(const Privacy& privacy) : mPrivacy(privacy) {}

    template <class Number>
    void number(const char* name, Number value) {
        begin(name);
        mText += std::to_string(value);
    }
    template <class Number>
    void pointed(const char* name, const Number* value) {
        if (value != nullptr) {
            number(name, *value);
        } else {
            null(name);
        }
    }
    void null(const char* name);
    void bytes(const char* name, const void* data, size_t size, bool isPrivate);
    void text(const char* name, const char* text, bool isPrivate);
    void record(const char* name, const Record& record, const void* data);
    /** A record of which not its own size came is told as bytes. */
    void record(const char* name, const Record* record, const void* data, size_t size);

    /** The object. */
    std::string object() const { return "{" + mText + "}"; }

private:
    void begin(const char* name);
    void quote(const char* text, size_t size);
    void hex(const uint8_t* data, size_t size);
    void leaveOut(const void* data, size_t size);
    void field(const Field& field, const uint8_t* data, const uint8_t* record);

    const Privacy& mPrivacy;
    std::string mText;
};

/** One number for each handle of the modem, from 1 on. */
uint64_t numberOfHandle(uint64_t handle);

}  // namespace recording
