#include "OnLoad.h"

#include <memory>
#include <string>

#include "ModemOptions.h"
#include "params/ModemLog.h"
#include "service/ModemImpl.h"

int onLoad(int argc, char** argv) {
    LOG_I("%s: loading modem plugin", __func__);
    const Errno parsed = ModemOptions::parse(argc, argv);
    if (parsed != ERRNO_SUCCESS) {
        LOG_E("%s: failed to parse modem options, can't load modem plugin", __func__);
        return parsed;
    }
    const ModemOptions::InstanceId& instance = ModemOptions::instanceId();
    if (!instance.valid) {
        LOG_E("%s: instance id is NOT valid, can't setup MODEM hal service", __func__);
        return ERRNO_INVALID_PARAM;
    }
    Log::setPrefix("[" + std::to_string(instance.id) + "] ");
    const std::shared_ptr<ModemImpl> service = ModemImpl::create(instance.id);
    const int result = service->setup();
    if (result == ERRNO_SUCCESS) {
        LOG_I("%s: successfully setup MODEM hal service for instance {%d}", __func__, instance.id);
    } else {
        LOG_E("%s: failed to setup MODEM hal service for instance {%d}", __func__, instance.id);
    }
    return result;
}
