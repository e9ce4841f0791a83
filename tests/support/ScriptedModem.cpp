#include "tests/support/ScriptedModem.h"

#include <cstring>
#include <type_traits>
#include <utility>

#include "tests/support/Allocations.h"

namespace {

std::string noted(const std::string& text) {
    return text;
}

template <class Integer, class = std::enable_if_t<std::is_integral_v<Integer>>>
std::string noted(Integer value) {
    return std::to_string(value);
}

template <class... Args>
std::string listed(const Args&... args) {
    std::string text;
    ((text += noted(args), text += ", "), ...);
    text.resize(text.size() - (text.empty() ? 0 : 2));
    return text;
}

/** Where a value stands until the call that it is made for is over. */
template <class T>
T* at(T&& value) {
    return &value;
}

ScriptedModem& modem() {
    return ScriptedModem::instance();
}

}  // namespace

std::string toHex(const void* data, size_t size) {
    static constexpr char DIGITS[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < size; ++i) {
        const auto byte = static_cast<const uint8_t*>(data)[i];
        hex += {DIGITS[byte >> 4], DIGITS[byte & 15]};
    }
    return hex;
}

ScriptedModem& ScriptedModem::instance() {
    static ScriptedModem& modem = *new ScriptedModem;
    return modem;
}

void ScriptedModem::reset() {
    mCalls.clear();
    mResults.clear();
    mFills.clear();
    mPending.clear();
}

bool ScriptedModem::answer(const void* data, size_t length) {
    if (mPending.empty()) {
        return false;
    }
    const Call first = mPending.front();
    mPending.pop_front();
    first.callback(data, length, first.cookie, MODEM_API_RESULT_SUCCESS);
    return true;
}

void ScriptedModem::raise(modem_api_event_type event, const void* data, size_t length) {
    std::vector<uint8_t> copy(static_cast<const uint8_t*>(data),
                              static_cast<const uint8_t*>(data) + (data != nullptr ? length : 0));
    mEventCallback(event, data != nullptr ? copy.data() : nullptr, length);
}

int ScriptedModem::enter(const Call& call) {
    if (mTaker) {
        return mTaker(call);
    }
    std::function<void(void*)> fill;
    int result = 0;
    {
        std::lock_guard lock(mMutex);
        mCalls.push_back(call.function + ("(" + call.arguments + ")"));
        fill = mFills[call.function];
        auto& results = mResults[call.function];
        result = results.empty() ? 0 : results.front();
        if (results.size() > 1) {
            results.erase(results.begin());
        }
        if (result == 0 && call.callback != nullptr) {
            mPending.push_back(call);
        }
    }
    if (fill) {
        fill(call.out);
    }
    return result;
}

// The functions, one row each: name, parameters, where the answer goes if any, what is noted.

#define SYNC(function, parameters, ...) GET(function, parameters, nullptr, __VA_ARGS__)
#define GET(function, parameters, out, ...)                          \
    int function parameters {                                        \
        const allocations::Pause pause;                              \
        return modem().enter({#function, listed(__VA_ARGS__), out}); \
    }
#define COOKIE void *cookie, modem_api_async_callback callback
#define ASYNC(function, parameters, ...)                                                   \
    int function parameters {                                                              \
        const allocations::Pause pause;                                                    \
        return modem().enter({#function, listed(__VA_ARGS__), nullptr, cookie, callback}); \
    }

// clang-format off
using Bytes = const uint8_t*;

SYNC(modem_api_init_pre, ())
SYNC(modem_api_subscribe_event, (modem_api_event_type event), event)
SYNC(modem_api_register_indications, ())
SYNC(modem_api_init_qmi_connection, (modem_api_qmi_service_type service, int flags), service, flags)
SYNC(modem_api_release_qmi_connection, (modem_api_qmi_service_type service), service)
SYNC(modem_api_bind_nas_subscription, (int32_t instance), instance)
SYNC(modem_api_bind_wds_subscription, (int32_t instance), instance)
SYNC(modem_api_bind_vs_subscription, (int32_t instance), instance)
GET(modem_get_operating_mode, (int32_t* mode), mode)
SYNC(modem_set_operating_mode, (int32_t mode), mode)
SYNC(modem_suppress_nas_ss_inds, ())
SYNC(modem_switch_nr_network_mode, (int32_t mode), mode)
GET(modem_get_nr_network_mode, (uint32_t* mode), mode)
SYNC(modem_set_vonr_mode, (int32_t mode), mode)
GET(modem_get_vonr_mode, (uint32_t* mode), mode)
SYNC(modem_deprioritize_nr_mode, (int32_t mode), mode)
GET(modem_qdp_check_ims_profile, (uint32_t* state), state)
GET(modem_qdp_get_ims_profile, (modem_ims_profile* list, uint8_t* count), at(std::pair(list, count)), *count)
SYNC(modem_qdp_delete_ims_profile, (const modem_ims_profile* profile), toHex(profile, 8))
SYNC(modem_set_sar_dsi, (int32_t state), state)
SYNC(modem_pdc_get_activate_config_info, (int32_t type, int32_t token), type, token)
SYNC(modem_pdc_get_config_info, (Bytes id, int32_t len, int32_t token), toHex(id, 124), len, token)
SYNC(modem_pdc_set_selected_config_info, (int32_t type, Bytes id), type, toHex(id, 124))
SYNC(modem_pdc_set_selected_config_info_ext, (int32_t type, Bytes id, int32_t length), type, toHex(id, 124), length)
SYNC(modem_pdc_delete_all_mbns, ())
SYNC(modem_pdc_activate_config, (int32_t type), type)
SYNC(modem_pdc_deactivate_config, (int32_t type), type)
SYNC(modem_pdc_activate_regular_config, (int32_t type, int32_t token), type, token)
GET(modem_pdc_load_configuration, (const char* id, Bytes chunk, int32_t length, int32_t total),
    at(std::string(chunk, chunk + length)), id, length, total)
SYNC(modem_api_delete_modem_property_sync, (const char* name), name)
SYNC(modem_common_interface_debug, (uint32_t value), value)
GET(modem_api_get_simlock_info, (modem_simlock_info* info), info)
GET(modem_api_get_simlock_fuse_status, (uint32_t* status), status)
SYNC(modem_subsystem_reboot, ())
GET(modem_read_nv_for_subid, (int32_t selector1, int32_t item, uint8_t selector2, uint8_t* buffer, size_t* length),
    at(std::pair(buffer, length)), selector1, item, selector2, *length)
SYNC(modem_write_nv_for_subid, (int32_t selector1, int32_t item, Bytes data, size_t size), selector1, item, toHex(data, size))
GET(modem_verify_nv, (int32_t item, Bytes data, size_t size, modem_nv_verification* result), result, item, toHex(data, size))
GET(modem_read_efs_for_subid, (uint32_t sub, int32_t file, uint8_t* buffer, size_t* length),
    at(std::pair(buffer, length)), sub, file, *length)
SYNC(modem_write_efs_for_subid, (uint32_t sub, int32_t file, Bytes data, size_t size), sub, file, toHex(data, size))
SYNC(modem_del_efs_for_subid, (uint32_t sub, int32_t file), sub, file)
SYNC(modem_del_efs_file_dir, (int32_t directory), directory)
GET(modem_read_prl, (uint8_t selector, uint8_t* buffer, size_t* length), at(std::pair(buffer, length)), selector, *length)
SYNC(modem_write_prl, (uint8_t selector, Bytes data, size_t size), selector, toHex(data, size))
SYNC(modem_atlog_cmd_reg, (const char* name), name)
SYNC(modem_atlog_send_resp, (const modem_atlog_resp_type* response), response->handle, response->result, response->kind, response->unused)

ASYNC(modem_get_build_time, (COOKIE))
ASYNC(modem_get_build_id, (COOKIE))
ASYNC(modem_api_active_mbn, (const char* name, COOKIE), name)
ASYNC(modem_api_restore_mbn, (COOKIE))
ASYNC(modem_api_set_agps_test_mode, (uint32_t mode, COOKIE), mode)
ASYNC(modem_api_get_agps_test_mode, (COOKIE))
ASYNC(modem_api_get_power_save_mode, (COOKIE))
ASYNC(modem_api_set_power_save_mode, (uint8_t mode, COOKIE), mode)
ASYNC(modem_api_set_modem_property, (const modem_property_record* value, COOKIE), toHex(value, 576))
ASYNC(modem_api_get_modem_property, (const char* name, COOKIE), name)
ASYNC(modem_api_set_power_save_status, (uint8_t status, COOKIE), status)
ASYNC(modem_get_bands_info, (COOKIE))
ASYNC(modem_api_remove_rat_mask, (COOKIE))
ASYNC(modem_abort_rrc_connection, (COOKIE))
ASYNC(modem_api_set_radio_info_report_enabled, (uint32_t enabled, COOKIE), enabled)
// clang-format on

int modem_api_set_event_callback(modem_api_event_callback callback) {
    const allocations::Pause pause;
    modem().setEventCallback(callback);
    return modem().enter({__func__, "", nullptr});
}
