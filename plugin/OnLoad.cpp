#include "OnLoad.h"

#include <memory>
#include <new>
#include <string>

#include "ModemOptions.h"
#include "params/ModemLog.h"
#include "service/ModemImpl.h"

namespace {

int load(const char* func, int argc, char** argv) {
    LOG_I("%s: loading modem plugin", func);
    const Errno parsed = ModemOptions::parse(argc, argv);
    if (parsed != ERRNO_SUCCESS) {
        LOG_E("%s: failed to parse modem options, can't load modem plugin", func);
        return parsed;
    }
    const ModemOptions::InstanceId& instance = ModemOptions::instanceId();
    if (!instance.valid) {
        LOG_E("%s: instance id is NOT valid, can't setup MODEM hal service", func);
        return ERRNO_INVALID_PARAM;
    }
    Log::setPrefix("[" + std::to_string(instance.id) + "] ");
    const std::shared_ptr<ModemImpl> service = ModemImpl::create(instance.id);
    const int result = service->setup();
    if (result == ERRNO_SUCCESS) {
        LOG_I("%s: successfully setup MODEM hal service for instance {%d}", func, instance.id);
    } else {
        LOG_E("%s: failed to setup MODEM hal service for instance {%d}", func, instance.id);
    }
    return result;
}

}  // namespace

int onLoad(int argc, char** argv) {
    try {
        return load(__func__, argc, argv);
    } catch (const std::bad_alloc&) {
        LOG_E("%s: no memory to load modem plugin", __func__);
        return ERRNO_NO_MEMORY;
    }
}
