#include "Api.h"

using namespace fake;

namespace {

int bind(const char* function, Needs needs, int32_t instance) {
    return requestModem(function, needs,
                        [&](Modem& modem) { return modem.bind(needs.service, instance); });
}

}  // namespace

int modem_api_init_pre(void) {
    return requestModem(__func__, NO_SERVICE, [](Modem& modem) { modem.startPorts(); });
}

int modem_api_set_event_callback(modem_api_event_callback callback) {
    return requestModem(__func__, NO_SERVICE,
                        [&](Modem& modem) { modem.setEventCallback(callback); });
}

int modem_api_subscribe_event(modem_api_event_type event) {
    return requestModem(__func__, NO_SERVICE, [&](Modem& modem) { modem.subscribe(event); });
}

int modem_api_register_indications(void) {
    return requestModem(__func__, VS, [](Modem& modem) { modem.registerIndications(); });
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
