#include "tests/support/ScriptedModem.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <type_traits>
#include <utility>

#include "tests/support/Allocations.h"

namespace {

template <class T>
void append(std::ostringstream& text, const T& value) {
    if constexpr (std::is_integral_v<T>) {
        text << +value;
    } else {
        text << value;
    }
}

template <class... Args>
std::string listed(const Args&... args) {
    const allocations::Pause pause;
    std::ostringstream text;
    [[maybe_unused]] const char* separator = "";
    ((text << separator, append(text, args), separator = ", "), ...);
    return text.str();
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
    std::lock_guard lock(mMutex);
    mCalls.clear();
    mResults.clear();
    mNextResults.clear();
    mFills.clear();
    mPending.clear();
}

void ScriptedModem::returns(const std::string& function, int result) {
    std::lock_guard lock(mMutex);
    mResults[function] = result;
}

void ScriptedModem::returnsOnce(const std::string& function, std::vector<int> results) {
    std::lock_guard lock(mMutex);
    mNextResults[function] = std::move(results);
}

void ScriptedModem::onCall(const std::string& function, std::function<void(void*)> fill) {
    std::lock_guard lock(mMutex);
    mFills[function] = std::move(fill);
}

std::vector<std::string> ScriptedModem::calls() const {
    std::lock_guard lock(mMutex);
    return mCalls;
}

std::vector<std::string> ScriptedModem::calls(const std::string& function) const {
    std::vector<std::string> some = calls();
    some.erase(
            std::remove_if(some.begin(), some.end(),
                           [&](const std::string& call) { return call.rfind(function, 0) != 0; }),
            some.end());
    return some;
}

void ScriptedModem::clearCalls() {
    std::lock_guard lock(mMutex);
    mCalls.clear();
}

std::optional<ScriptedModem::Pending> ScriptedModem::takePending() {
    std::lock_guard lock(mMutex);
    if (mPending.empty()) {
        return std::nullopt;
    }
    Pending first = mPending.front();
    mPending.erase(mPending.begin());
    return first;
}

bool ScriptedModem::answer(const void* data, size_t length) {
    const std::optional<Pending> request = takePending();
    if (request) {
        request->callback(data, length, request->cookie, MODEM_API_RESULT_SUCCESS);
    }
    return request.has_value();
}

bool ScriptedModem::answer(const modem_async_response& response) {
    return answer(&response, sizeof(response));
}

void ScriptedModem::raise(modem_api_event_type event, const void* data, size_t length) {
    std::vector<uint8_t> copy(static_cast<const uint8_t*>(data),
                              static_cast<const uint8_t*>(data) + (data != nullptr ? length : 0));
    mEventCallback(event, data != nullptr ? copy.data() : nullptr, length);
}

void ScriptedModem::raiseService(modem_api_event_type event, modem_api_qmi_service_type service) {
    raise(event, &service, sizeof(service));
}

int ScriptedModem::enter(const char* function, const std::string& arguments, void* out) {
    const allocations::Pause pause;
    std::function<void(void*)> fill;
    int result = 0;
    {
        std::lock_guard lock(mMutex);
        mCalls.push_back(std::string(function) + "(" + arguments + ")");
        if (const auto found = mFills.find(function); found != mFills.end()) {
            fill = found->second;
        }
        auto& next = mNextResults[function];
        if (!next.empty()) {
            result = next.front();
            next.erase(next.begin());
        } else if (const auto found = mResults.find(function); found != mResults.end()) {
            result = found->second;
        }
    }
    if (fill) {
        fill(out);
    }
    return result;
}

int ScriptedModem::enterAsync(const char* function, const std::string& arguments, void* cookie,
                              modem_api_async_callback callback) {
    const int result = enter(function, arguments, nullptr);
    if (result == 0) {
        const allocations::Pause pause;
        std::lock_guard lock(mMutex);
        mPending.push_back({function, cookie, callback});
    }
    return result;
}

// The functions. Those that fill a value hand its address to the test's fill.

#define ENTER(...) modem().enter(__func__, listed(__VA_ARGS__))
#define ENTER_OUT(out, ...) modem().enter(__func__, listed(__VA_ARGS__), out)
#define ENTER_ASYNC(...) modem().enterAsync(__func__, listed(__VA_ARGS__), cookie, callback)

int modem_api_init_pre(void) {
    return ENTER();
}
int modem_api_set_event_callback(modem_api_event_callback callback) {
    modem().setEventCallback(callback);
    return ENTER();
}
int modem_api_subscribe_event(modem_api_event_type event) {
    return ENTER(event);
}
int modem_api_register_indications(void) {
    return ENTER();
}
int modem_api_init_qmi_connection(modem_api_qmi_service_type service, int flags) {
    return ENTER(service, flags);
}
int modem_api_release_qmi_connection(modem_api_qmi_service_type service) {
    return ENTER(service);
}
int modem_api_bind_nas_subscription(int32_t instance) {
    return ENTER(instance);
}
int modem_api_bind_wds_subscription(int32_t instance) {
    return ENTER(instance);
}
int modem_api_bind_vs_subscription(int32_t instance) {
    return ENTER(instance);
}
int modem_get_operating_mode(int32_t* mode) {
    return ENTER_OUT(mode);
}
int modem_set_operating_mode(int32_t mode) {
    return ENTER(mode);
}
int modem_suppress_nas_ss_inds(void) {
    return ENTER();
}
int modem_switch_nr_network_mode(int32_t mode) {
    return ENTER(mode);
}
int modem_get_nr_network_mode(uint32_t* mode) {
    return ENTER_OUT(mode);
}
int modem_set_vonr_mode(int32_t mode) {
    return ENTER(mode);
}
int modem_get_vonr_mode(uint32_t* mode) {
    return ENTER_OUT(mode);
}
int modem_deprioritize_nr_mode(int32_t mode) {
    return ENTER(mode);
}
int modem_qdp_check_ims_profile(uint32_t* state) {
    return ENTER_OUT(state);
}
int modem_qdp_get_ims_profile(modem_ims_profile* list, uint8_t* count) {
    std::pair<modem_ims_profile*, uint8_t*> out(list, count);
    return ENTER_OUT(&out, *count);
}
int modem_qdp_delete_ims_profile(const modem_ims_profile* profile) {
    return ENTER(toHex(profile->bytes, sizeof(profile->bytes)));
}
int modem_set_sar_dsi(int32_t state) {
    return ENTER(state);
}
int modem_pdc_get_activate_config_info(int32_t type, int32_t token) {
    return ENTER(type, token);
}
int modem_pdc_get_config_info(const uint8_t* config_id, int32_t length, int32_t token) {
    return ENTER(toHex(config_id, MODEM_PDC_CONFIG_ID_SIZE), length, token);
}
int modem_pdc_set_selected_config_info(int32_t type, const uint8_t* config_id) {
    return ENTER(type, toHex(config_id, MODEM_PDC_CONFIG_ID_SIZE));
}
int modem_pdc_set_selected_config_info_ext(int32_t type, const uint8_t* config_id, int32_t length) {
    return ENTER(type, toHex(config_id, MODEM_PDC_CONFIG_ID_SIZE), length);
}
int modem_pdc_delete_all_mbns(void) {
    return ENTER();
}
int modem_pdc_activate_config(int32_t type) {
    return ENTER(type);
}
int modem_pdc_deactivate_config(int32_t type) {
    return ENTER(type);
}
int modem_pdc_activate_regular_config(int32_t type, int32_t token) {
    return ENTER(type, token);
}
int modem_pdc_load_configuration(const char* identifier, const uint8_t* chunk, int32_t length,
                                 int32_t total_size) {
    std::string content(reinterpret_cast<const char*>(chunk), length);
    return ENTER_OUT(&content, identifier, length, total_size);
}
int modem_get_build_time(void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC();
}
int modem_get_build_id(void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC();
}
int modem_api_active_mbn(const char* name, void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC(name);
}
int modem_api_restore_mbn(void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC();
}
int modem_api_set_agps_test_mode(uint32_t mode, void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC(mode);
}
int modem_api_get_agps_test_mode(void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC();
}
int modem_api_get_power_save_mode(void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC();
}
int modem_api_set_power_save_mode(uint8_t mode, void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC(mode);
}
int modem_api_set_modem_property(const modem_property_record* property, void* cookie,
                                 modem_api_async_callback callback) {
    return ENTER_ASYNC(toHex(property, sizeof(*property)));
}
int modem_api_get_modem_property(const char* name, void* cookie,
                                 modem_api_async_callback callback) {
    return ENTER_ASYNC(name);
}
int modem_api_set_power_save_status(uint8_t status, void* cookie,
                                    modem_api_async_callback callback) {
    return ENTER_ASYNC(status);
}
int modem_get_bands_info(void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC();
}
int modem_api_remove_rat_mask(void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC();
}
int modem_abort_rrc_connection(void* cookie, modem_api_async_callback callback) {
    return ENTER_ASYNC();
}
int modem_api_set_radio_info_report_enabled(uint32_t enabled, void* cookie,
                                            modem_api_async_callback callback) {
    return ENTER_ASYNC(enabled);
}
int modem_api_delete_modem_property_sync(const char* name) {
    return ENTER(name);
}
int modem_common_interface_debug(uint32_t value) {
    return ENTER(value);
}
int modem_api_get_simlock_info(modem_simlock_info* info) {
    return ENTER_OUT(info);
}
int modem_api_get_simlock_fuse_status(uint32_t* status) {
    return ENTER_OUT(status);
}
int modem_subsystem_reboot(void) {
    return ENTER();
}
int modem_read_nv_for_subid(int32_t selector1, int32_t item, uint8_t selector2, uint8_t* buffer,
                            size_t* length) {
    std::pair<uint8_t*, size_t*> out(buffer, length);
    return ENTER_OUT(&out, selector1, item, selector2, *length);
}
int modem_write_nv_for_subid(int32_t selector1, int32_t item, const uint8_t* data, size_t size) {
    return ENTER(selector1, item, toHex(data, size));
}
int modem_verify_nv(int32_t item, const uint8_t* data, size_t size,
                    modem_nv_verification* verification) {
    return ENTER_OUT(verification, item, toHex(data, size));
}
int modem_read_efs_for_subid(uint32_t sub_selector, int32_t file, uint8_t* buffer, size_t* length) {
    std::pair<uint8_t*, size_t*> out(buffer, length);
    return ENTER_OUT(&out, sub_selector, file, *length);
}
int modem_write_efs_for_subid(uint32_t sub_selector, int32_t file, const uint8_t* data,
                              size_t size) {
    return ENTER(sub_selector, file, toHex(data, size));
}
int modem_del_efs_for_subid(uint32_t sub_selector, int32_t file) {
    return ENTER(sub_selector, file);
}
int modem_del_efs_file_dir(int32_t directory) {
    return ENTER(directory);
}
int modem_read_prl(uint8_t selector, uint8_t* buffer, size_t* length) {
    std::pair<uint8_t*, size_t*> out(buffer, length);
    return ENTER_OUT(&out, selector, *length);
}
int modem_write_prl(uint8_t selector, const uint8_t* data, size_t size) {
    return ENTER(selector, toHex(data, size));
}
int modem_atlog_cmd_reg(const char* name) {
    return ENTER(name);
}
int modem_atlog_send_resp(const modem_atlog_resp_type* response) {
    return ENTER(response->handle, response->result, response->kind, response->unused);
}
