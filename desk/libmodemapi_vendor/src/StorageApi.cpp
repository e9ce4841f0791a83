#include "Api.h"

using namespace fake;

namespace {

constexpr size_t ENTRIES_MAX = 1024;

int read(const char* function, Store Memory::*store, Store::Key key, uint8_t* buffer,
         size_t* length) {
    return request(function, VS, [&](const Memory& memory) -> int {
        const Bytes* content = (memory.*store).find(key);
        if (content == nullptr) {
            return MODEM_API_RESULT_FAILURE;
        }
        return produce(function, content->data(), content->size(), buffer, length);
    });
}

int write(const char* function, Store Memory::*store, Store::Key key, const uint8_t* data,
          size_t size) {
    return request(function, VS,
                   [&](Memory& memory) { return (memory.*store).write(key, data, size); });
}

/** The NV item of that number under the lowest selector that has it; null for none. */
const Bytes* findItem(const Store& items, int32_t item) {
    for (const auto& [key, content] : items.entries) {
        if (key.second == item) {
            return &content;
        }
    }
    return nullptr;
}

}  // namespace

int Store::write(Key key, const uint8_t* data, size_t size) {
    if (size > mLargest || (data == nullptr && size > 0) ||
        (entries.size() >= ENTRIES_MAX && entries.count(key) == 0)) {
        return MODEM_API_RESULT_INVALID_PARAM;
    }
    entries[key].assign(data, data + size);
    return MODEM_API_RESULT_SUCCESS;
}

const Bytes* Store::find(Key key) const {
    const auto found = entries.find(key);
    return found != entries.end() ? &found->second : nullptr;
}

// The function that writes has no second selector, so the one for reading does not look at it.

int modem_read_nv_for_subid(int32_t selector1, int32_t item, uint8_t, uint8_t* buffer,
                            size_t* length) {
    return read(__func__, &Memory::nvItems, {selector1, item}, buffer, length);
}

int modem_write_nv_for_subid(int32_t selector1, int32_t item, const uint8_t* data, size_t size) {
    return write(__func__, &Memory::nvItems, {selector1, item}, data, size);
}

int modem_verify_nv(int32_t item, const uint8_t* data, size_t size,
                    modem_nv_verification* verification) {
    return request(__func__, VS, [&](const Memory& memory) -> int {
        const Bytes* content = findItem(memory.nvItems, item);
        modem_nv_verification found{};
        if (content != nullptr && (data != nullptr || size == 0)) {
            found.compared = 1;
            found.differs = !std::equal(content->begin(), content->end(), data, data + size);
        }
        size_t length = sizeof(found);
        return produce("modem_verify_nv", &found, sizeof(found), verification, &length);
    });
}

int modem_read_efs_for_subid(uint32_t sub_selector, int32_t file, uint8_t* buffer, size_t* length) {
    return read(__func__, &Memory::efsFiles, {sub_selector, file}, buffer, length);
}

int modem_write_efs_for_subid(uint32_t sub_selector, int32_t file, const uint8_t* data,
                              size_t size) {
    return write(__func__, &Memory::efsFiles, {sub_selector, file}, data, size);
}

int modem_del_efs_for_subid(uint32_t sub_selector, int32_t file) {
    return request(__func__, VS, [&](Memory& memory) {
        return resultIf(memory.efsFiles.erase({sub_selector, file}));
    });
}

int modem_del_efs_file_dir(int32_t directory) {
    // The directory of a number holds the files of that number, one for each sub-selector.
    return request(__func__, VS, [&](Memory& memory) {
        auto& entries = memory.efsFiles.entries;
        const size_t before = entries.size();
        for (auto entry = entries.begin(); entry != entries.end();) {
            entry = entry->first.second == directory ? entries.erase(entry) : std::next(entry);
        }
        return resultIf(entries.size() < before);
    });
}

int modem_read_prl(uint8_t selector, uint8_t* buffer, size_t* length) {
    return read(__func__, &Memory::prls, {selector, 0}, buffer, length);
}

int modem_write_prl(uint8_t selector, const uint8_t* data, size_t size) {
    return write(__func__, &Memory::prls, {selector, 0}, data, size);
}
