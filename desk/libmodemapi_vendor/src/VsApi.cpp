#include "Api.h"

using namespace fake;

namespace {

using Payload = decltype(modem_async_response::payload);

constexpr size_t PROPERTIES_MAX = 1024;

int requestText(const char* function, const char* name, void* cookie,
                modem_api_async_callback callback) {
    return requestAsync(function, cookie, callback, [&](const Memory& memory, Payload& payload) {
        const std::string& text = valueOf(memory.texts, name);
        payload.build.length = text.copy(payload.build.text, sizeof(payload.build.text));
    });
}

std::string propertyName(const char* name, size_t length) {
    return boundedText(name, std::min(length, sizeof(modem_property_record::name)));
}

template <size_t Size>
void fillBands(const Bands& bands, uint32_t& count, uint32_t (&values)[Size]) {
    count = bands.count;
    std::copy_n(bands.values.begin(), std::min(bands.values.size(), Size), values);
}

}  // namespace

int modem_get_build_time(void* cookie, modem_api_async_callback callback) {
    return requestText(__func__, "build-time", cookie, callback);
}

int modem_get_build_id(void* cookie, modem_api_async_callback callback) {
    return requestText(__func__, "build-id", cookie, callback);
}

int modem_api_active_mbn(const char* name, void* cookie, modem_api_async_callback callback) {
    return requestAsync(__func__, cookie, callback, [&](Memory& memory, Payload&) {
        valueOf(memory.texts, "mbn-by-name") = boundedText(name, MODEM_PDC_CONFIG_ID_SIZE);
        return MODEM_API_RESULT_SUCCESS;
    });
}

int modem_api_restore_mbn(void* cookie, modem_api_async_callback callback) {
    return requestAsync(__func__, cookie, callback, [](Memory& memory, Payload&) {
        const Memory factory;
        memory.configurations.insert(factory.configurations.begin(), factory.configurations.end());
        memory.active = factory.active;
        valueOf(memory.texts, "mbn-by-name").clear();
    });
}

int modem_api_set_agps_test_mode(uint32_t mode, void* cookie, modem_api_async_callback callback) {
    return writeNumberAsync(__func__, "agps-test-mode", mode, cookie, callback);
}

int modem_api_get_agps_test_mode(void* cookie, modem_api_async_callback callback) {
    return requestAsync(__func__, cookie, callback, [](const Memory& memory, Payload& payload) {
        payload.agps_test_mode = static_cast<uint32_t>(valueOf(memory.numbers, "agps-test-mode"));
    });
}

int modem_api_get_power_save_mode(void* cookie, modem_api_async_callback callback) {
    return requestAsync(__func__, cookie, callback, [](const Memory& memory, Payload& payload) {
        payload.power_save_mode = static_cast<uint8_t>(valueOf(memory.numbers, "power-save-mode"));
    });
}

int modem_api_set_power_save_mode(uint8_t mode, void* cookie, modem_api_async_callback callback) {
    return writeNumberAsync(__func__, "power-save-mode", mode, cookie, callback);
}

int modem_api_set_modem_property(const modem_property_record* property, void* cookie,
                                 modem_api_async_callback callback) {
    return requestAsync(__func__, cookie, callback, [&](Memory& memory, Payload&) {
        const std::string name = propertyName(property->name, property->name_length);
        auto& properties = memory.properties;
        if (name.empty() || (properties.size() >= PROPERTIES_MAX && properties.count(name) == 0)) {
            return MODEM_API_RESULT_INVALID_PARAM;
        }
        properties[name] = boundedText(
                property->value, std::min<size_t>(property->value_length, sizeof(property->value)));
        return MODEM_API_RESULT_SUCCESS;
    });
}

int modem_api_get_modem_property(const char* name, void* cookie,
                                 modem_api_async_callback callback) {
    return requestAsync(__func__, cookie, callback, [&](const Memory& memory, Payload& payload) {
        const auto found = memory.properties.find(propertyName(name, strlen(name)));
        if (found == memory.properties.end()) {
            return MODEM_API_RESULT_FAILURE;
        }
        found->second.copy(payload.property_value, sizeof(payload.property_value) - 1);
        return MODEM_API_RESULT_SUCCESS;
    });
}

int modem_api_set_power_save_status(uint8_t status, void* cookie,
                                    modem_api_async_callback callback) {
    return writeNumberAsync(__func__, "power-save-status", status, cookie, callback);
}

int modem_get_bands_info(void* cookie, modem_api_async_callback callback) {
    return requestAsync(__func__, cookie, callback, [](const Memory& memory, Payload& payload) {
        auto& info = payload.bands;
        fillBands(memory.bands[0], info.count1, info.bands1);
        fillBands(memory.bands[1], info.count2, info.bands2);
        fillBands(memory.bands[2], info.count3, info.bands3);
        fillBands(memory.bands[3], info.count4, info.bands4);
        fillBands(memory.bands[4], info.count5, info.bands5);
    });
}

int modem_api_remove_rat_mask(void* cookie, modem_api_async_callback callback) {
    return writeNumberAsync(__func__, "rat-mask", 0, cookie, callback);
}

int modem_abort_rrc_connection(void* cookie, modem_api_async_callback callback) {
    return writeNumberAsync(__func__, "rrc-connected", 0, cookie, callback);
}

int modem_api_set_radio_info_report_enabled(uint32_t enabled, void* cookie,
                                            modem_api_async_callback callback) {
    const int result = requestAsync(__func__, cookie, callback, [](Memory&, Payload&) {});
    if (result == MODEM_API_RESULT_SUCCESS) {
        Modem::get().setRadioReport(enabled != 0);
    }
    return result;
}

int modem_api_delete_modem_property_sync(const char* name) {
    return request(__func__, VS, [&](Memory& memory) {
        return resultIf(memory.properties.erase(propertyName(name, strlen(name))) != 0);
    });
}

int modem_common_interface_debug(uint32_t value) {
    return writeNumber(__func__, VS, "debug-value", value);
}

int modem_api_get_simlock_info(modem_simlock_info* info) {
    return request(__func__, VS, [&](const Memory& memory) {
        info->status = static_cast<uint8_t>(valueOf(memory.numbers, "simlock-status"));
        info->category = static_cast<uint8_t>(valueOf(memory.numbers, "simlock-category"));
        info->retries_remaining = static_cast<uint8_t>(valueOf(memory.numbers, "simlock-retries"));
    });
}

int modem_api_get_simlock_fuse_status(uint32_t* status) {
    return readNumber(__func__, VS, "fuse-status", status);
}
