#include "Api.h"

using namespace fake;

namespace {

constexpr size_t CONFIGURATIONS_MAX = 16;
constexpr int32_t CONFIGURATION_LARGEST = 16 << 20;

/** The text at the start of an identifier buffer. */
std::string identifierText(const uint8_t* config_id, int32_t length) {
    const size_t room = std::clamp<int32_t>(length, 0, MODEM_PDC_CONFIG_ID_SIZE);
    return boundedText(reinterpret_cast<const char*>(config_id), room);
}

bool isLoaded(const Memory& memory, const std::string& identifier) {
    const auto found = memory.configurations.find(identifier);
    return found != memory.configurations.end() && found->second.isComplete();
}

int select(const char* function, int32_t type, const uint8_t* config_id, int32_t length) {
    return request(function, PDC, [&](Memory& memory) -> int {
        const std::string identifier = identifierText(config_id, length);
        if (!isLoaded(memory, identifier)) {
            return MODEM_API_RESULT_FAILURE;
        }
        memory.selected[type] = identifier;
        return MODEM_API_RESULT_SUCCESS;
    });
}

/** Writes `text` to an area of an event, and its length. */
template <size_t Size>
void fillArea(uint8_t (&area)[Size], uint32_t& length, const std::string& text) {
    length = static_cast<uint32_t>(text.copy(reinterpret_cast<char*>(area), Size));
}

}  // namespace

void Configuration::add(const uint8_t* chunk, size_t length, size_t ofTotal) {
    if (isComplete() || ofTotal != total || data.size() + length > total) {
        *this = {ofTotal, {}};
        data.reserve(ofTotal);
    }
    data.insert(data.end(), chunk, chunk + length);
}

void Memory::dropUnfinished() {
    for (auto entry = configurations.begin(); entry != configurations.end();) {
        entry = entry->second.isComplete() ? std::next(entry) : configurations.erase(entry);
    }
}

int modem_pdc_get_activate_config_info(int32_t type, int32_t token) {
    return requestEvent<modem_pdc_active_info_event>(
            __func__, MODEM_API_EVENT_ACTIVE_MBN_INFO, token,
            [&](const Memory& memory, auto& event) {
                const auto found = memory.active.find(type);
                if (found == memory.active.end()) {
                    return MODEM_API_RESULT_FAILURE;
                }
                fillArea(event.config_id, event.config_id_length, found->second);
                return MODEM_API_RESULT_SUCCESS;
            });
}

int modem_pdc_get_config_info(const uint8_t* config_id, int32_t length, int32_t token) {
    return requestEvent<modem_pdc_meta_info_event>(
            __func__, MODEM_API_EVENT_META_MBN_INFO, token, [&](const Memory& memory, auto& event) {
                const std::string identifier = identifierText(config_id, length);
                if (!isLoaded(memory, identifier)) {
                    return MODEM_API_RESULT_FAILURE;
                }
                const size_t size = memory.configurations.at(identifier).total;
                fillArea(event.metadata, event.metadata_length,
                         "name=" + identifier + " size=" + std::to_string(size));
                return MODEM_API_RESULT_SUCCESS;
            });
}

int modem_pdc_set_selected_config_info(int32_t type, const uint8_t* config_id) {
    return select(__func__, type, config_id, MODEM_PDC_CONFIG_ID_SIZE);
}

int modem_pdc_set_selected_config_info_ext(int32_t type, const uint8_t* config_id, int32_t length) {
    return select(__func__, type, config_id, length);
}

int modem_pdc_delete_all_mbns(void) {
    return request(__func__, PDC, [](Memory& memory) {
        memory.configurations.clear();
        memory.selected.clear();
        memory.active.clear();
    });
}

int modem_pdc_activate_config(int32_t type) {
    return request(__func__, PDC, [&](Memory& memory) -> int {
        const auto found = memory.selected.find(type);
        if (found == memory.selected.end()) {
            return MODEM_API_RESULT_FAILURE;
        }
        memory.active[type] = found->second;
        return MODEM_API_RESULT_SUCCESS;
    });
}

int modem_pdc_deactivate_config(int32_t type) {
    return request(__func__, PDC,
                   [&](Memory& memory) { return resultIf(memory.active.erase(type) != 0); });
}

int modem_pdc_activate_regular_config(int32_t type, int32_t token) {
    return requestEvent<modem_pdc_activate_regular_event>(
            __func__, MODEM_API_EVENT_ACTIVATE_REGULAR_MBN, token,
            [&](Memory& memory, auto&) { memory.active[type] = FACTORY_CONFIGURATION; });
}

int modem_pdc_load_configuration(const char* identifier, const uint8_t* chunk, int32_t length,
                                 int32_t total_size) {
    const int result = request(__func__, PDC, [&](Memory& memory) -> int {
        const std::string name = boundedText(identifier, MODEM_PDC_CONFIG_ID_SIZE);
        auto& configurations = memory.configurations;
        if (length <= 0 || total_size < length || total_size > CONFIGURATION_LARGEST ||
            name.size() == MODEM_PDC_CONFIG_ID_SIZE ||
            (configurations.size() >= CONFIGURATIONS_MAX && configurations.count(name) == 0)) {
            return MODEM_API_RESULT_INVALID_PARAM;
        }
        configurations[name].add(chunk, static_cast<size_t>(length),
                                 static_cast<size_t>(total_size));
        return MODEM_API_RESULT_SUCCESS;
    });
    if (result != MODEM_API_RESULT_SUCCESS) {  // also when a fault, or the service, refused it
        Modem::get().with([](Memory& memory) { memory.dropUnfinished(); });
    }
    return result;
}
