#include "clients/CheckedCopy.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "params/ModemLog.h"

void checkedCopy(const char* func, void* to, size_t room, const void* from, size_t size) {
    if (size > room) {
        LOG_F("%s: %zu bytes don't fit into %zu, can't go on", func, size, room);
        abort();
    }
    std::copy_n(static_cast<const uint8_t*>(from), size, static_cast<uint8_t*>(to));
}
