#include "Api.h"

using namespace fake;

namespace {

template <class Work>
int requestLinks(const char* function, Needs needs, Work&& work) {
    return requestModem(function, needs, [&](Modem& modem) {
        return modem.withLinks([&](Links& links) { return resultOf(work, links); });
    });
}

int bind(const char* function, Needs needs, int32_t instance) {
    return requestLinks(function, needs, [&](Links& links) {
        if (instance != 0 && instance != 1) {
            return MODEM_API_RESULT_INVALID_PARAM;
        }
        links.connections[needs.service].bound = instance;
        return MODEM_API_RESULT_SUCCESS;
    });
}

}  // namespace

int modem_api_init_pre(void) {
    return requestModem(__func__, NO_SERVICE, [](Modem& modem) { modem.startPorts(); });
}

int modem_api_set_event_callback(modem_api_event_callback callback) {
    return requestLinks(__func__, NO_SERVICE, [&](Links& links) { links.callback = callback; });
}

int modem_api_subscribe_event(modem_api_event_type event) {
    return requestLinks(__func__, NO_SERVICE,
                        [&](Links& links) { links.subscribed.insert(event); });
}

int modem_api_register_indications(void) {
    return requestLinks(__func__, VS, [](Links& links) { links.indications = true; });
}

int modem_api_init_qmi_connection(modem_api_qmi_service_type service, int) {
    return requestModem(__func__, NO_SERVICE,
                        [&](Modem& modem) { return resultIf(modem.open(service)); });
}

int modem_api_release_qmi_connection(modem_api_qmi_service_type service) {
    return requestModem(__func__, NO_SERVICE,
                        [&](Modem& modem) { return resultIf(modem.release(service)); });
}

int modem_api_bind_nas_subscription(int32_t instance) {
    return bind(__func__, NAS, instance);
}

int modem_api_bind_wds_subscription(int32_t instance) {
    return bind(__func__, WDS, instance);
}

int modem_api_bind_vs_subscription(int32_t instance) {
    return bind(__func__, VS, instance);
}

int modem_subsystem_reboot(void) {
    return requestModem(__func__, VS, [](Modem& modem) { modem.restart(); });
}

int modem_atlog_cmd_reg(const char* name) {
    return requestModem(__func__, AT, [&](Modem& modem) -> int {
        if (*name != '+' || strlen(name) >= MODEM_ATLOG_NAME_SIZE) {
            return MODEM_API_RESULT_INVALID_PARAM;
        }
        modem.atPort().registerName(name);
        return MODEM_API_RESULT_SUCCESS;
    });
}

int modem_atlog_send_resp(const modem_atlog_resp_type* response) {
    return requestModem(__func__, AT, [&](Modem& modem) -> int {
        if (response->result > 1) {
            return MODEM_API_RESULT_INVALID_PARAM;
        }
        return resultIf(modem.atPort().finish(response->handle, response->result == 1));
    });
}
