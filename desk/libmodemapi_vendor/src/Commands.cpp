#include "Commands.h"

#include <algorithm>
#include <stdexcept>

#include "ApiFunctions.h"
#include "Call.h"

namespace fake {

namespace {

struct Command {
    const char* name;
    const char* arguments;  ///< as help shows them, and as they are counted: [] may be left out
    const char* help;
    void (*run)(Call& call);
    bool raisesEvents = false;
};

void state(Call& call) {
    const std::string prefix = call.count() > 0 ? call.text(1) : "";
    bool isKnown = !prefix.empty() && prefix.back() == '.';  // there may be none at the moment
    for (const auto& [key, value] : call.modem.describe()) {
        if (key.rfind(prefix, 0) == 0) {
            call.print(key, 20, value);
            isKnown = true;
        }
    }
    if (!isKnown) {
        call.refuse(1, "begins no key; 'state' lists them");
    }
}

std::vector<modem_api_qmi_service_type> services(const Call& call) {
    if (call.text(1) == "all") {
        return call.modem.services(&Connection::isOpen);
    }
    for (const auto& [number, name] : SERVICES) {
        if (call.text(1) == name) {
            return {number};
        }
    }
    if (call.text(1).find_first_not_of("0123456789") != std::string::npos) {
        std::string names;
        for (const auto& service : SERVICES) {
            names += std::string(service.second) + ", ";
        }
        call.refuse(1, "is no service: " + names + "all, or a number");
    }
    return {call.number<uint8_t>(1)};
}

template <void (Modem::*CHANGE)(modem_api_qmi_service_type)>
void forServices(Call& call) {
    for (const modem_api_qmi_service_type service : services(call)) {
        (call.modem.*CHANGE)(service);
    }
}

void restart(Call& call) {
    call.modem.restart(call.count() > 0
                               ? std::optional(Milliseconds(call.number(1, 0, MS_GREATEST)))
                               : std::nullopt);
}

void set(Call& call) {
    const std::string& key = call.text(1);
    const bool isTime = key.size() > 3 && key.compare(key.size() - 3, 3, "-ms") == 0;
    call.modem.with([&](Memory& memory) {
        if (const auto text = memory.texts.find(key); text != memory.texts.end()) {
            text->second = call.joined(2, " ");
        } else if (const auto number = memory.numbers.find(key); number != memory.numbers.end()) {
            number->second =
                    call.only(2, isTime ? 0 : INT32_MIN, isTime ? MS_GREATEST : UINT32_MAX);
        } else {
            call.refuse(1, "is no plain value of the memory; 'state' lists them");
        }
    });
}

void bands(Call& call) {
    const auto list = static_cast<size_t>(call.number(1, 1, 5) - 1);
    Bands bands{call.number<uint32_t>(2), {}};
    for (size_t i = 3; i <= call.count(); ++i) {
        bands.values.push_back(call.number<uint32_t>(i));
    }
    call.modem.with([&](Memory& memory) { memory.bands[list] = bands; });
}

void profiles(Call& call) {
    const bool isNumber = call.text(1).size() < 2 * sizeof(modem_ims_profile);
    std::vector<modem_ims_profile> list(isNumber ? call.number<uint8_t>(1) : call.count());
    for (size_t i = 0; i < list.size(); ++i) {
        list[i].bytes[0] = static_cast<uint8_t>(i + 1);
        const auto bytes = fromHex(isNumber ? toHex(toBytes(list[i])) : call.text(i + 1));
        if (!bytes || bytes->size() != sizeof(list[i].bytes)) {
            call.refuse(i + 1, "is not 16 hexadecimal digits");
        }
        std::copy(bytes->begin(), bytes->end(), list[i].bytes);
    }
    call.modem.with([&](Memory& memory) { memory.imsProfiles = list; });
}

void event(Call& call) {
    const auto number = call.number<modem_api_event_type>(1);
    const Bytes data = call.bytes(2);
    constexpr size_t TOKENS = offsetof(modem_atlog_cmd_type, tokens);
    if (number == MODEM_API_EVENT_AT_COMMAND && data.size() > TOKENS &&
        std::any_of(data.begin() + TOKENS, data.end(), [](uint8_t byte) { return byte != 0; })) {
        call.refuse(2, "has pointers, which the receiver would free: use 'at'");
    }
    call.modem.raise(number, data, true);
}

/** `count` values of a record, `width` bytes each, one behind the other from `offset` on. */
struct Values {
    size_t offset, width, count;
};

/** Overwrites the first values of `record`, as many as there are arguments. */
template <class Record, size_t Size>
Record filled(const Call& call, Record record, const Values (&layout)[Size]) {
    size_t place = 1;
    for (const auto& [offset, width, count] : layout) {
        const int64_t greatest = width < 8 ? (1LL << (8 * width)) - 1 : INT64_MAX;
        for (size_t i = 0; i < count && place <= call.count(); ++i, ++place) {
            const int64_t value = call.number(place, width == 4 ? INT32_MIN : 0, greatest);
            memcpy(reinterpret_cast<uint8_t*>(&record) + offset + i * width, &value, width);
        }
    }
    if (place <= call.count()) {
        call.refuse(place, "is one too many");
    }
    return record;
}

void rrc(Call& call) {
    call.raise(MODEM_API_EVENT_RRC_STATE, filled(call, modem_rrc_state_event{}, {{8, 4, 4}}));
}

void powerSave(Call& call) {
    const auto mode = call.number<int32_t>(1);
    call.modem.with([&](Memory& memory) { valueOf(memory.numbers, "power-save-mode") = mode; });
    call.raise(MODEM_API_EVENT_POWER_SAVE_MODE, modem_power_save_mode_event{0, mode});
}

void radio(Call& call) {
    static constexpr Values LAYOUT[] = {{8, 4, 2},  {16, 8, 1}, {24, 4, 1}, {28, 4, 4}, {44, 1, 1},
                                        {46, 2, 1}, {48, 4, 4}, {64, 4, 1}, {68, 4, 16}};
    const auto known = call.modem.with([](const Memory& memory) { return memory.radio; });
    const auto record = filled(call, known, LAYOUT);
    call.modem.with([&](Memory& memory) { memory.radio = record; });
    call.raise(MODEM_API_EVENT_NR_RADIO_INFO, record);
}

void at(Call& call) {
    AtCommand command{call.modem.atPort().post(),
                      call.number<uint32_t>(2),
                      call.text(1),
                      call.number<uint16_t>(3),
                      {}};
    for (size_t i = 4; i <= call.count(); ++i) {
        const bool isNull = call.text(i) == "-";
        command.tokens.push_back(isNull ? std::nullopt : std::optional(call.text(i)));
    }
    call.print("handle", 0, std::to_string(command.handle));
    call.modem.raiseAtCommand(std::move(command));
}

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

void fail(Call& call) {
    const auto code = call.count() < 2 ? MODEM_API_RESULT_FAILURE : call.number<int32_t>(2);
    const auto times = call.count() < 3 ? UINT32_MAX : call.number<uint32_t>(3);
    const auto after = call.count() < 4 ? 0 : call.number<uint32_t>(4);
    call.edit([&](Fault& fault) {
        fault.failCode = code;
        fault.failTimes = times;
        fault.failAfter = after;
    });
}

void delay(Call& call) {
    const std::string& text = call.text(2);
    const size_t dash = text.find('-', 1);
    const std::string upper = dash == text.npos ? text : text.substr(dash + 1);
    const Milliseconds least(call.toNumber(2, text.substr(0, dash), 0, MS_GREATEST));
    const Milliseconds greatest(call.toNumber(2, upper, least.count(), MS_GREATEST));
    call.edit([&](Fault& fault) { fault.delay = {least, greatest}; });
}

void silence(Call& call) {
    call.edit([](Fault& fault) { fault.silent = true; });
}

void patch(Call& call) {
    if (call.text(2) == "size") {
        const auto size = static_cast<size_t>(call.only(3, 0, RECORD_LARGEST));
        call.edit([&](Fault& fault) { fault.recordSize = size; });
        return;
    }
    const auto change = patchOf(call);
    call.edit([&](Fault& fault) {
        if (fault.patches.size() >= PATCHES_MAX && fault.patches.count(change.first) == 0) {
            call.refuse(1, "has " + std::to_string(PATCHES_MAX) + " patches already");
        }
        fault.patches[change.first] = change.second;
    });
}

void ok(Call& call) {
    call.edit([](Fault& fault) {
        const uint64_t calls = fault.calls;
        fault = {};
        fault.calls = calls;
    });
}

void clear(Call& call) {
    call.modem.faults().clear();
}

void calls(Call& call) {
    if (call.count() > 0) {
        call.edit([&](Fault& fault) { call.output = std::to_string(fault.calls) + "\n"; });
        return;
    }
    const auto faults = call.modem.faults().all();
    for (const std::string function : API_FUNCTIONS) {
        const auto found = faults.find(function);
        call.print(function, 42, std::to_string(found != faults.end() ? found->second.calls : 0));
    }
}

void help(Call& call);

constexpr Command COMMANDS[] = {
        {"help", "", "this list", help},
        {"state", "[PREFIX]", "what the modem remembers, keys that begin so", state},
        {"set", "KEY VALUE...", "a plain value of the memory", set},
        {"bands", "LIST COUNT [VALUE...]", "band list 1 to 5, with any count", bands},
        {"profiles", "HEX...", "the IMS profiles: 8 bytes each, or only a number", profiles},
        {"forget", "", "the memory is as it was at the start",
         [](Call& call) { call.modem.with([](Memory& memory) { memory = {}; }); }},
        {"connect", "SERVICE", "service up: a name, a number, or all that are open",
         forServices<&Modem::connect>, true},
        {"disconnect", "SERVICE", "service down", forServices<&Modem::disconnect>, true},
        {"restart", "[MS]", "modem restart, back after MS", restart, true},
        {"rrc", "A B C D", "event 15 with these values", rrc, true},
        {"power-save", "MODE", "power save mode, and event 20", powerSave, true},
        {"radio", "[VALUE...]", "event 19; values replace the first ones of the report", radio,
         true},
        {"at", "NAME OP_CODE COUNT [TOKEN...]", "event 2; - is a null token", at, true},
        {"event", "NUMBER HEX...", "any event, subscribed or not; - is no data", event, true},
        {"fail", "FUNCTION [CODE] [TIMES] [AFTER]", "calls fail, after AFTER good ones", fail},
        {"delay", "FUNCTION MS", "calls last, or answers wait, MS or MIN-MAX", delay},
        {"silence", "FUNCTION", "answers never come", silence},
        {"patch", "FUNCTION FIELD VALUE...",
         "answers have this in a field: size, result, token, length, or bytes at an offset", patch},
        {"ok", "FUNCTION", "the function has no fault any more", ok},
        {"clear", "", "all faults off, all counts zero", clear},
        {"calls", "[FUNCTION]", "how often functions were called", calls},
};

/** A line for each command: its word and arguments, then its comment behind " # ". */
void help(Call& call) {
    for (const Command& command : COMMANDS) {
        const bool isAlone = *command.arguments == '\0';
        call.print(command.name + std::string(isAlone ? "" : " ") + command.arguments, 37,
                   std::string(" # ") + command.help);
    }
}

bool isCountRight(const Command& command, size_t count) {
    const auto arguments = *splitQuoted(command.arguments, ' ');
    const auto optional = std::count_if(arguments.begin(), arguments.end(),
                                        [](const std::string& word) { return word[0] == '['; });
    const bool isOpen = std::string(command.arguments).find("...") != std::string::npos;
    return count + static_cast<size_t>(optional) >= arguments.size() &&
           (isOpen || count <= arguments.size());
}

std::string runWords(std::vector<std::string> words) {
    const auto command =
            std::find_if(std::begin(COMMANDS), std::end(COMMANDS),
                         [&](const Command& candidate) { return words[0] == candidate.name; });
    if (command == std::end(COMMANDS)) {
        throw std::invalid_argument("no command '" + words[0] + "'; 'help' lists them");
    }
    if (!isCountRight(*command, words.size() - 1)) {
        throw std::invalid_argument(std::string("usage: ") + command->name + " " +
                                    command->arguments);
    }
    Call call(std::move(words));
    if (command->raisesEvents && !call.modem.takesEvents()) {
        throw std::invalid_argument(call.text(0) + ": too many events wait to be taken (" +
                                    std::to_string(PENDING_MAX) + ')');
    }
    command->run(call);
    return std::move(call.output);
}

}  // namespace

std::string runCommand(const std::string& line) {
    try {
        const auto words = splitQuoted(line.substr(0, line.find_last_not_of('\r') + 1), ' ');
        if (!words) {
            throw std::invalid_argument("a quote is not closed");
        }
        return words->empty() ? "ok\n" : runWords(*words) + "ok\n";
    } catch (const std::invalid_argument& error) {
        return "error: " + printable(error.what()) + "\n";
    }
}

}  // namespace fake
