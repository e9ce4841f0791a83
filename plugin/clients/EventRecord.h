#pragma once

#include <cstddef>
#include <cstring>

#include "params/ModemLog.h"

/**
 * Copies an event's data, which need not be aligned, into its record.
 *
 * @param func name of the function that the log lines belong to
 * @return false, with an error line, when there is no data or less than the record
 */
template <class Record>
bool takeEvent(const char* func, const void* data, size_t length, Record& record) {
    if (data == nullptr || length < sizeof(Record)) {
        LOG_E("%s: event data of %zu bytes is too short, need %zu", func,
              data == nullptr ? size_t{0} : length, sizeof(Record));
        return false;
    }
    memcpy(&record, data, sizeof(Record));
    return true;
}
