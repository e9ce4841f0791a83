#include "Api.h"

using namespace fake;

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
