#include "Record.h"

#include <string.h>

#include <map>
#include <mutex>

namespace recording {

namespace {

uint64_t rotated(uint64_t value, int bits) {
    return value << bits | value >> (64 - bits);
}

void mix(uint64_t (&v)[4], int rounds) {
    for (; rounds != 0; --rounds) {
        v[0] += v[1];
        v[2] += v[3];
        v[1] = rotated(v[1], 13) ^ v[0];
        v[3] = rotated(v[3], 16) ^ v[2];
        v[0] = rotated(v[0], 32) + v[3];
        v[2] += v[1];
        v[3] = rotated(v[3], 21) ^ v[0];
        v[1] = rotated(v[1], 17) ^ v[2];
        v[2] = rotated(v[2], 32);
    }
}

/** Length without the zeros at the end. */
size_t lengthOf(const uint8_t* data, size_t size) {
    while (size != 0 && data[size - 1] == 0) {
        --size;
    }
    return size;
}

uint64_t numberAt(const uint8_t* data, size_t size, bool isSigned) {
    uint64_t value = 0;
    memcpy(&value, data, size);
    if (isSigned && size < sizeof(value) && (data[size - 1] & 0x80) != 0) {
        value |= ~uint64_t{0} << (8 * size);
    }
    return value;
}

}  // namespace

uint64_t checksum(const uint64_t (&key)[2], const void* data, size_t size) {
    uint64_t v[4] = {key[0] ^ 0x736f6d6570736575, key[1] ^ 0x646f72616e646f6d,
                     key[0] ^ 0x6c7967656e657261, key[1] ^ 0x7465646279746573};
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t at = 0; at <= size; at += 8) {
        uint64_t word = 0;
        if (at < size) {
            memcpy(&word, bytes + at, std::min<size_t>(8, size - at));
        }
        if (size - at < 8) {
            word |= static_cast<uint64_t>(size) << 56;
        }
        v[3] ^= word;
        mix(v, 2);
        v[0] ^= word;
    }
    v[2] ^= 0xff;
    mix(v, 4);
    return v[0] ^ v[1] ^ v[2] ^ v[3];
}

uint64_t numberOfHandle(uint64_t handle) {
    static std::mutex& mutex = *new std::mutex;
    static auto& numbers = *new std::map<uint64_t, uint64_t>;
    std::lock_guard lock(mutex);
    return numbers.emplace(handle, numbers.size() + 1).first->second;
}

void Writer::begin(const char* name) {
    if (!mText.empty()) {
        mText += ',';
    }
    mText.append("\"").append(name).append("\":");
}

void Writer::null(const char* name) {
    begin(name);
    mText += "null";
}

/** A byte that is no plain character stands as the character of that number. */
void Writer::quote(const char* text, size_t size) {
    mText += '"';
    for (size_t i = 0; i < size; ++i) {
        const auto byte = static_cast<uint8_t>(text[i]);
        if (byte < 0x20 || byte > 0x7e || byte == '"' || byte == '\\') {
            mText += "\\u00";
            hex(&byte, 1);
        } else {
            mText += text[i];
        }
    }
    mText += '"';
}

void Writer::hex(const uint8_t* data, size_t size) {
    constexpr char DIGITS[] = "0123456789abcdef";
    for (size_t i = 0; i < size; ++i) {
        mText += DIGITS[data[i] >> 4];
        mText += DIGITS[data[i] & 15];
    }
}

void Writer::leaveOut(const void* data, size_t size) {
    mText.append("{\"length\":").append(std::to_string(size));
    if (!mPrivacy.isReplay) {
        const uint64_t sum = checksum(mPrivacy.key, data, size);
        mText += ",\"sum\":\"";
        hex(reinterpret_cast<const uint8_t*>(&sum), sizeof(sum));
        mText += '"';
    }
    mText += '}';
}

void Writer::bytes(const char* name, const void* data, size_t size, bool isPrivate) {
    if (data == nullptr || static_cast<ssize_t>(size) < 0) {  // a caller's negative length
        return null(name);
    }
    begin(name);
    if (isPrivate && !mPrivacy.takesAll) {
        return leaveOut(data, size);
    }
    mText += '"';
    hex(static_cast<const uint8_t*>(data), size);
    mText += '"';
}

void Writer::text(const char* name, const char* text, bool isPrivate) {
    if (text == nullptr) {
        return null(name);
    }
    begin(name);
    if (isPrivate && !mPrivacy.takesAll) {
        leaveOut(text, strlen(text));
    } else {
        quote(text, strlen(text));
    }
}

void Writer::field(const Field& field, const uint8_t* data, const uint8_t* record) {
    if (field.kind == Kind::TOKENS) {
        const auto* command = reinterpret_cast<const modem_atlog_cmd_type*>(record);
        const auto last = command->tokens + bounded(command->token_count, field.count);
        begin(field.name);
        mText += '[';
        for (auto token = command->tokens; token != last; ++token) {
            mText += token == command->tokens ? "" : ",";
            if (*token == nullptr) {
                mText += "null";
            } else {
                quote(*token, strlen(*token));
            }
        }
        mText += ']';
    } else if (field.kind == Kind::TEXT || field.kind == Kind::BYTES) {
        const size_t length = lengthOf(data, field.count);
        if (field.kind == Kind::BYTES || (field.isPrivate && !mPrivacy.takesAll)) {
            return bytes(field.name, data, length, field.isPrivate);
        }
        begin(field.name);
        quote(reinterpret_cast<const char*>(data), length);
    } else {
        begin(field.name);
        mText += field.count == 1 ? "" : "[";
        for (size_t i = 0; i < field.count; ++i) {
            const bool isSigned = field.kind == Kind::SIGNED || field.kind == Kind::TOKEN;
            uint64_t value = numberAt(data + i * field.size, field.size, isSigned);
            if (field.kind == Kind::HANDLE && !mPrivacy.isReplay) {
                value = numberOfHandle(value);
            }
            mText += i == 0 ? "" : ",";
            mText += isSigned ? std::to_string(static_cast<int64_t>(value)) : std::to_string(value);
        }
        mText += field.count == 1 ? "" : "]";
    }
}

void Writer::record(const char* name, const Record& record, const void* data) {
    if (data == nullptr) {
        return null(name);
    }
    Writer members(mPrivacy);
    for (const Field& each : record.fields) {
        const auto* bytes = static_cast<const uint8_t*>(data);
        members.field(each, bytes + each.offset, bytes);
    }
    begin(name);
    mText += members.object();
}

void Writer::record(const char* name, const Record* record, const void* data, size_t size) {
    if (record != nullptr && record->size == size) {
        this->record(name, *record, data);
    } else {
        bytes(name, data, size, true);
    }
}

}  // namespace recording
