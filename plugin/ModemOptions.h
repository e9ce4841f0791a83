#pragma once

#include <cstdint>

#include <framework/Errno.h>

/** The plug-in's command line. Used on the loading thread alone, before any request can arrive. */
class ModemOptions {
public:
    struct InstanceId {
        int32_t id;
        bool valid;  ///< set once an id was parsed, for good
    };

    /** The id of the first `-i` that any `parse` met. */
    static const InstanceId& instanceId() { return sInstanceId; }

    /**
     * Reads `-i ID`, ID 0 or 1; a word that is no number counts as 0. Anything else is skipped.
     *
     * @param argv the first element is a name and not looked at
     * @return 0; 3 for a missing vector or an id above 1
     */
    static Errno parse(int argc, char** argv);

private:
    static bool parseInstanceId(const char* func, const char* text);

    static InstanceId sInstanceId;
};
