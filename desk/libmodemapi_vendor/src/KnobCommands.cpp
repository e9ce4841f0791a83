#include "KnobCommands.h"

#include "Call.h"

namespace fake {

namespace {

constexpr int64_t RECORD_LARGEST = 65536;
constexpr size_t PATCHES_MAX = 64;

/**
 * A 32-bit field that `patch` knows by its name: its offset in the answers of those functions whose
 * names begin with `functions`. The first entry that fits counts.
 */
struct Field {
    const char* name;
    const char* functions;
    size_t offset;
};

constexpr Field FIELDS[] = {
        {"result", "modem_pdc_", offsetof(modem_pdc_active_info_event, result)},
        {"token", "modem_pdc_", offsetof(modem_pdc_active_info_event, token)},
        {"length", "modem_pdc_get_activate_config_info",
         offsetof(modem_pdc_active_info_event, config_id_length)},
        {"length", "modem_pdc_get_config_info",
         offsetof(modem_pdc_meta_info_event, metadata_length)},
        {"length", "modem_get_build_", offsetof(modem_async_response, payload)},
        {"result", "modem_", offsetof(modem_async_response, result)},
};

/** Offset and bytes of a patch; after a named field comes a number, after an offset come bytes. */
std::pair<size_t, Bytes> patchOf(const Call& call) {
    for (const auto& [name, functions, offset] : FIELDS) {
        if (call.text(2) == name && call.text(1).rfind(functions, 0) == 0) {
            return {offset, toBytes(static_cast<uint32_t>(call.only(3, INT32_MIN, UINT32_MAX)))};
        }
    }
    if (call.text(2).find_first_not_of("0123456789abcdefxABCDEF") != std::string::npos) {
        call.refuse(2, "is neither an offset nor size, result, token or length of this function");
    }
    return {static_cast<size_t>(call.number(2, 0, RECORD_LARGEST)), call.bytes(3)};
}

}  // namespace

void fail(Call& call) {
    const auto code = call.count() < 2 ? MODEM_API_RESULT_FAILURE : call.number<int32_t>(2);
    const auto times = call.count() < 3 ? UINT32_MAX : call.number<uint32_t>(3);
    const auto after = call.count() < 4 ? 0 : call.number<uint32_t>(4);
    call.edit([&](Knobs& knobs) {
        knobs.failCode = code;
        knobs.failTimes = times;
        knobs.failAfter = after;
    });
}

void delay(Call& call) {
    const std::string& text = call.text(2);
    const size_t dash = text.find('-', 1);
    const std::string upper = dash == text.npos ? text : text.substr(dash + 1);
    const Milliseconds least(call.toNumber(2, text.substr(0, dash), 0, MS_GREATEST));
    const Milliseconds greatest(call.toNumber(2, upper, least.count(), MS_GREATEST));
    call.edit([&](Knobs& knobs) { knobs.delay = {least, greatest}; });
}

void silence(Call& call) {
    call.edit([](Knobs& knobs) { knobs.silent = true; });
}

void patch(Call& call) {
    if (call.text(2) == "size") {
        const auto size = static_cast<size_t>(call.only(3, 0, RECORD_LARGEST));
        call.edit([&](Knobs& knobs) { knobs.recordSize = size; });
        return;
    }
    const auto change = patchOf(call);
    call.edit([&](Knobs& knobs) {
        if (knobs.patches.size() >= PATCHES_MAX && knobs.patches.count(change.first) == 0) {
            call.refuse(1, "has " + std::to_string(PATCHES_MAX) + " patches already");
        }
        knobs.patches[change.first] = change.second;
    });
}

void heal(Call& call) {
    call.edit([](Knobs& knobs) {
        const uint64_t calls = knobs.calls;
        knobs = {};
        knobs.calls = calls;
    });
}

void clear(Call& call) {
    call.modem.knobs().clear();
}

void calls(Call& call) {
    if (call.count() > 0) {
        call.edit([&](Knobs& knobs) { call.output = std::to_string(knobs.calls) + "\n"; });
        return;
    }
    for (const auto& [function, knobs] : call.modem.knobs().all()) {
        call.print(function, 42, std::to_string(knobs.calls));
    }
}

}  // namespace fake
