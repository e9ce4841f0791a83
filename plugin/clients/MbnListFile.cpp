// The one source that a build setting reaches: OX_MBN_LIST_FILE, for a system without the device's
// folders. Not set, or empty, leaves the device's own path.

#include "clients/MbnList.h"

#ifndef OX_MBN_LIST_FILE
#define OX_MBN_LIST_FILE ""
#endif

const char* mbnListFile() {
    static constexpr char CONFIGURED[] = OX_MBN_LIST_FILE;
    return CONFIGURED[0] != '\0' ? CONFIGURED : "/data/vendor/modem_config/mcfg_sw/oem_sw.txt";
}
