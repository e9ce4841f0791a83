#include "Api.h"

using namespace fake;

int modem_get_operating_mode(int32_t* mode) {
    return readNumber(__func__, DMS, "operating-mode", mode);
}

int modem_set_operating_mode(int32_t mode) {
    return writeNumber(__func__, DMS, "operating-mode", mode);
}

int modem_suppress_nas_ss_inds(void) {
    // This modem has no such indications to stop.
    return request(__func__, NAS, [](const Memory&) {});
}

int modem_switch_nr_network_mode(int32_t mode) {
    return writeNumber(__func__, NAS_BOUND, "nr-network-mode", mode);
}

int modem_get_nr_network_mode(uint32_t* mode) {
    return readNumber(__func__, NAS_BOUND, "nr-network-mode", mode);
}

int modem_set_vonr_mode(int32_t mode) {
    return writeNumber(__func__, NAS_BOUND, "vonr-mode", mode);
}

int modem_get_vonr_mode(uint32_t* mode) {
    return readNumber(__func__, NAS_BOUND, "vonr-mode", mode);
}

int modem_deprioritize_nr_mode(int32_t mode) {
    return writeNumber(__func__, NAS_BOUND, "nr-deprioritized", mode);
}

int modem_set_sar_dsi(int32_t state) {
    return writeNumber(__func__, SAR, "sar-state", state);
}

int modem_qdp_check_ims_profile(uint32_t* state) {
    return readNumber(__func__, WDS_BOUND, "ims-state", state);
}

// The list of profiles is the modem's, not one subscription's: no binding is asked for.

int modem_qdp_get_ims_profile(modem_ims_profile* list, uint8_t* count) {
    return request(__func__, WDS, [&](const Memory& memory) -> int {
        const auto& profiles = memory.imsProfiles;
        size_t length = *count * sizeof(*list);
        const size_t size = std::min(profiles.size() * sizeof(*list), length);
        const int result =
                produce("modem_qdp_get_ims_profile", profiles.data(), size, list, &length);
        *count = static_cast<uint8_t>(length / sizeof(*list));
        return result;
    });
}

int modem_qdp_delete_ims_profile(const modem_ims_profile* profile) {
    return request(__func__, WDS, [&](Memory& memory) -> int {
        auto& profiles = memory.imsProfiles;
        const auto found = std::find_if(profiles.begin(), profiles.end(), [&](const auto& entry) {
            return memcmp(entry.bytes, profile->bytes, sizeof(entry.bytes)) == 0;
        });
        if (found == profiles.end()) {
            return MODEM_API_RESULT_FAILURE;
        }
        profiles.erase(found);
        return MODEM_API_RESULT_SUCCESS;
    });
}
