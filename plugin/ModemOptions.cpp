#include "ModemOptions.h"

#include <getopt.h>
#include <unistd.h>

#include <cstdlib>

#include "params/ModemLog.h"

ModemOptions::InstanceId ModemOptions::sInstanceId{0, false};

Errno ModemOptions::parse(int argc, char** argv) {
    if (argc < 1 || argv == nullptr) {
        LOG_E("%s: invalid param input, can't parse options", __func__);
        return ERRNO_INVALID_PARAM;
    }
    LOG_I("%s: parsing modem options", __func__);
    optind = 1;
    // The leading "-" hands over words that are no options in their place, as the value 1.
    for (int option = 0; (option = getopt(argc, argv, "-i:")) != -1;) {
        if (option == 'i') {
            if (!parseInstanceId(__func__, optarg)) {
                return ERRNO_INVALID_PARAM;
            }
            continue;
        }
        const int skipped = option == '?' ? optopt : option;
        LOG_I("%s: skip option {%c(=%d)}", __func__, skipped & 0xff, skipped);
    }
    return ERRNO_SUCCESS;
}

bool ModemOptions::parseInstanceId(const char* func, const char* text) {
    constexpr uint32_t MAX_INSTANCE_ID = 1;
    if (sInstanceId.valid) {
        LOG_W("%s: instance id {%d} was parsed before, ignore {%s}", func, sInstanceId.id, text);
        return true;
    }
    const int id = atoi(text);
    if (static_cast<uint32_t>(id) > MAX_INSTANCE_ID) {
        LOG_E("%s: invalid instance id {%d} parsed", func, id);
        return false;
    }
    sInstanceId = {id, true};
    LOG_I("%s: successfully parsed instance id {%d}", func, id);
    return true;
}
