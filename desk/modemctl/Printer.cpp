#include "Printer.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <iostream>

#include "Values.h"

using nlohmann::ordered_json;

namespace {

using Shown = std::vector<std::pair<std::string, std::string>>;

/** Bytes as a terminal shows them: cut when they are many, and also as text if they are one. */
std::string shownBytes(const ordered_json& bytes, const std::string& hex) {
    constexpr size_t LONGEST = 32;
    constexpr size_t PREFIX = 4;  // hex:
    std::string text;
    for (const uint8_t byte : bytes) {
        text += static_cast<char>(byte);
    }
    const bool isText = !text.empty() && std::all_of(text.begin(), text.end(), [](char byte) {
        return byte >= ' ' && byte < 0x7f;
    });
    const bool cut = text.size() > LONGEST;
    std::string shown = hex.substr(0, PREFIX + 2 * LONGEST);
    if (cut) {
        shown += "... (" + std::to_string(text.size()) + " bytes)";
    }
    if (isText) {
        shown += " \"" + text.substr(0, LONGEST) + (cut ? "\"..." : "\"");
    }
    return shown;
}

/** Lists values by name, members of structs beside arguments; leaves out "type", always 0. */
void flatten(const hal::Field* fields, size_t count, const ordered_json& values, Shown& shown) {
    for (const hal::Field* field = fields; field != fields + count; ++field) {
        const ordered_json& value = values.at(field->name);
        if (field->type->kind == hal::Type::Kind::STRUCT) {
            flatten(field->type->fields, field->type->fieldCount, value, shown);
        } else if (field->name != std::string("type")) {
            const std::string text = values::text(*field->type, value);
            const bool cut = isatty(STDOUT_FILENO) != 0 && values::isBytes(*field->type);
            shown.emplace_back(field->name, cut ? shownBytes(value, text) : text);
        }
    }
}

void printText(const hal::Method& method, const ordered_json& arguments) {
    constexpr size_t VALUES_ON_A_LINE = 8;
    static const char* const terminal = getenv("TERM");
    static const bool colour = isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr &&
                               (terminal == nullptr || terminal != std::string("dumb"));
    const auto inColour = [](const char* code, const std::string& text) {
        return colour && *code != '\0' ? code + text + "\033[0m" : text;
    };
    Shown shown;
    flatten(method.args, method.argCount, arguments, shown);
    std::cout << inColour("\033[1m", method.name);
    for (const auto& [name, value] : shown) {
        if (shown.size() > VALUES_ON_A_LINE) {
            std::cout << "\n    " << std::left << std::setw(16) << name << value;
        } else {
            const bool alarm = name == "error" && value != "0";
            std::cout << ' ' << inColour(alarm ? "\033[31m" : "", name + '=' + value);
        }
    }
    std::cout << std::endl;
}

/** Local time to the millisecond, by a format of strftime for all but the fraction and zone. */
std::string now(const char* format, bool zone) {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    tm local{};
    localtime_r(&time.tv_sec, &local);
    char day[40];
    char offset[8];
    strftime(day, sizeof(day), format, &local);
    strftime(offset, sizeof(offset), "%z", &local);
    char text[64];
    snprintf(text, sizeof(text), "%s.%03ld", day, time.tv_nsec / 1000000);
    return std::string(text) + (zone ? std::string(offset, 3) + ':' + (offset + 3) : "");
}

}  // namespace

void checkOutput() {
    std::cout.exceptions(std::ios::badbit | std::ios::failbit);
}

void printCall(bool json, const hal::Method& method, const ordered_json& arguments, bool stamp) {
    if (json) {
        ordered_json object;
        if (stamp) {
            object["time"] = now("%FT%T", true);
        }
        object["method"] = method.name;
        object.update(arguments);
        std::cout << values::line(object) << std::endl;
    } else {
        std::cout << (stamp ? now("%T", false) + ' ' : "");
        printText(method, arguments);
    }
}
