#include "Commands.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "Modem.h"

namespace sim {

namespace {

constexpr int64_t MS_GREATEST = 600000;
constexpr int64_t ANSWER_LARGEST = 65536;

/** One command with its arguments. An argument that is not allowed throws invalid_argument. */
class Call {
public:
    explicit Call(std::vector<std::string> words) : mWords(std::move(words)) {}

    Modem& modem = Modem::get();
    std::string output; /**< lines, each with its newline */

    /** Number of arguments. */
    size_t count() const { return mWords.size() - 1; }
    /** The argument at `place`, counted from 1; the command at 0. */
    const std::string& text(size_t place) const { return mWords[place]; }

    /** All arguments from `place` on, `separator` between them. */
    std::string joined(size_t place, const char* separator) const {
        std::string all;
        for (size_t i = place; i < mWords.size(); ++i) {
            all += (i > place ? separator : "") + mWords[i];
        }
        return all;
    }

    int64_t number(size_t place, int64_t lowest, int64_t greatest) const {
        return toNumber(place, mWords[place], lowest, greatest);
    }

    template <class Value>
    Value number(size_t place) const {
        return static_cast<Value>(number(place, std::numeric_limits<Value>::min(),
                                         std::numeric_limits<Value>::max()));
    }

    int64_t toNumber(size_t place, const std::string& word, int64_t lowest,
                     int64_t greatest) const {
        char* end = nullptr;
        errno = 0;
        const long long value = strtoll(word.c_str(), &end, 0);
        if (word.empty() || *end != '\0' || errno != 0 || value < lowest || value > greatest) {
            refuse(place, "is not a number from " + std::to_string(lowest) + " to " +
                                  std::to_string(greatest));
        }
        return value;
    }

    /** The bytes of all arguments from `place` on; "-" stands for none. */
    Bytes bytes(size_t place) const {
        const std::string all = joined(place, "");
        const auto bytes = fromHex(all == "-" ? "" : all);
        if (!bytes) {
            refuse(place, "is not pairs of hexadecimal digits");
        }
        return *bytes;
    }

    [[noreturn]] void refuse(size_t place, const std::string& why) const {
        throw std::invalid_argument(mWords[0] + ": argument " + std::to_string(place) + " '" +
                                    mWords[place] + "' " + why);
    }

    /** Changes the knobs of the function that is the first argument. */
    template <class Change>
    void edit(Change&& change) const {
        modem.knobs().edit(text(1), change);
    }

    void print(const std::string& key, size_t width, const std::string& value) {
        const std::string gap(key.size() < width ? width - key.size() : 1, ' ');
        output += printable(key + gap + value) + "\n";
    }

    /** Reports an event that only a subscriber gets. */
    template <class Record>
    void raise(modem_api_event_type number, const Record& record) const {
        if (!modem.isWanted(number)) {
            throw std::invalid_argument(mWords[0] + ": service down or not bound, or event " +
                                        std::to_string(number) + " not subscribed");
        }
        modem.raise(number, toBytes(record));
    }

private:
    const std::vector<std::string> mWords;
};

struct Command {
    const char* name;
    const char* arguments; /**< as help shows them, and as they are counted: [] may be left out */
    const char* help;
    void (*run)(Call& call);
};

void state(Call& call) {
    const std::string prefix = call.count() > 0 ? call.text(1) : "";
    for (const auto& [key, value] : call.modem.describe()) {
        if (key.rfind(prefix, 0) == 0) {
            call.print(key, 20, value);
        }
    }
}

std::vector<modem_api_qmi_service_type> services(const Call& call) {
    if (call.text(1) == "all") {
        return call.modem.openServices();
    }
    for (const auto& [number, name] : SERVICES) {
        if (call.text(1) == name) {
            return {number};
        }
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
                    call.number(2, isTime ? 0 : INT32_MIN, isTime ? MS_GREATEST : UINT32_MAX);
        } else {
            call.refuse(1, "is no plain value of the memory");
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
        if (!bytes || bytes->size() != sizeof list[i].bytes) {
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

/** Values of a record: where the first one is, how wide each is, and how many stand in a row. */
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
    call.modem.with([&](Memory& memory) { memory.numbers.at("power-save-mode") = mode; });
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

void heal(Call& call) {
    call.edit([](Knobs& knobs) {
        const uint64_t calls = knobs.calls;
        knobs = {};
        knobs.calls = calls;
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

void answer(Call& call) {
    call.edit([&](Knobs& knobs) { knobs.patches[0] = call.bytes(2); });
}

void patch(Call& call) {
    const auto offset = static_cast<size_t>(call.number(2, 0, ANSWER_LARGEST));
    call.edit([&](Knobs& knobs) { knobs.patches[offset] = call.bytes(3); });
}

void result(Call& call) {
    const bool byEvent = call.text(1).rfind("modem_pdc_", 0) == 0;
    const size_t offset = byEvent ? offsetof(modem_pdc_active_info_event, result)
                                  : offsetof(modem_async_response, result);
    const auto code = static_cast<uint32_t>(call.number(2, INT32_MIN, UINT32_MAX));
    call.edit([&](Knobs& knobs) { knobs.patches[offset] = toBytes(code); });
}

void answerLength(Call& call) {
    const auto length = static_cast<size_t>(call.number(2, 0, ANSWER_LARGEST));
    call.edit([&](Knobs& knobs) { knobs.answerLength = length; });
}

/** Sets a field of the configuration events, the one that the command is named for. */
void pdcField(Call& call) {
    static constexpr struct {
        const char* command;
        const char* function;
        size_t offset;
    } FIELDS[] = {{"pdc-token", "modem_pdc_get_activate_config_info", 8},
                  {"pdc-token", "modem_pdc_get_config_info", 8},
                  {"pdc-token", "modem_pdc_activate_regular_config", 8},
                  {"pdc-length", "modem_pdc_get_activate_config_info", 136},
                  {"pdc-length", "modem_pdc_get_config_info", 268}};
    const auto value = static_cast<uint32_t>(call.number(1, INT32_MIN, UINT32_MAX));
    for (const auto& field : FIELDS) {
        if (call.text(0) == field.command) {
            call.modem.knobs().edit(field.function, [&](Knobs& knobs) {
                knobs.patches[field.offset] = toBytes(value);
            });
        }
    }
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

void help(Call& call);

constexpr Command COMMANDS[] = {
        {"help", "", "this list", help},
        {"state", "[PREFIX]", "what the modem remembers, keys that begin so", state},
        {"connect", "SERVICE", "service up: a name, a number, or all that are open",
         forServices<&Modem::connect>},
        {"disconnect", "SERVICE", "service down", forServices<&Modem::disconnect>},
        {"restart", "[MS]", "modem restart, back after MS", restart},
        {"set", "KEY VALUE...", "a plain value of the memory", set},
        {"bands", "LIST COUNT [VALUE...]", "band list 1 to 5, with any count", bands},
        {"profiles", "HEX...", "the IMS profiles: 8 bytes each, or only a number", profiles},
        {"forget", "", "the memory is as it was at the start",
         [](Call& call) { call.modem.with([](Memory& memory) { memory = {}; }); }},
        {"event", "NUMBER HEX...", "any event, subscribed or not; - is no data", event},
        {"rrc", "A B C D", "event 15 with these values", rrc},
        {"power-save", "MODE", "power save mode, and event 20", powerSave},
        {"radio", "[VALUE...]", "event 19; values replace the first ones of the report", radio},
        {"at", "NAME OP_CODE COUNT [TOKEN...]", "event 2; - is a null token", at},
        {"fail", "FUNCTION [CODE] [TIMES] [AFTER]", "calls fail, after AFTER good ones", fail},
        {"ok", "FUNCTION", "all knobs of the function off", heal},
        {"delay", "FUNCTION MS", "calls last, or answers wait, MS or MIN-MAX", delay},
        {"silence", "FUNCTION", "answers never come",
         [](Call& call) { call.edit([](Knobs& knobs) { knobs.silent = true; }); }},
        {"result", "FUNCTION CODE", "answers carry this result", result},
        {"answer", "FUNCTION HEX...", "answers begin with these bytes", answer},
        {"patch", "FUNCTION OFFSET HEX...", "answers have these bytes at the offset", patch},
        {"answer-length", "FUNCTION N", "answers are N bytes long", answerLength},
        {"pdc-length", "N", "configuration events say this length", pdcField},
        {"pdc-token", "N", "configuration events carry this token", pdcField},
        {"calls", "[FUNCTION]", "how often functions were called", calls},
        {"clear", "", "all knobs off, all counts zero",
         [](Call& call) { call.modem.knobs().clear(); }},
};

void help(Call& call) {
    for (const Command& command : COMMANDS) {
        call.print(std::string(command.name) + " " + command.arguments, 38, command.help);
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

}  // namespace sim
