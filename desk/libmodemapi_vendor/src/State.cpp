#include <algorithm>
#include <cstdio>

#include "Modem.h"

namespace fake {

namespace {

constexpr size_t BYTES_SHOWN = 32;

using Lines = std::vector<std::pair<std::string, std::string>>;

std::string show(const std::string& text) {
    return text;
}

template <class Number>
std::string show(Number number) {
    return std::to_string(number);
}

std::string show(const Store::Key& key) {
    return show(key.first) + "." + show(key.second);
}

/** Number of bytes, a checksum over them (FNV-1a), and the first of them. */
std::string show(const Bytes& bytes) {
    uint32_t sum = 2166136261U;
    for (const uint8_t byte : bytes) {
        sum = (sum ^ byte) * 16777619U;
    }
    char text[32];
    snprintf(text, sizeof(text), "%zu %08x ", bytes.size(), sum);
    const auto shown = static_cast<ptrdiff_t>(std::min(BYTES_SHOWN, bytes.size()));
    const Bytes first(bytes.begin(), bytes.begin() + shown);
    return text + toHex(first) + (first.size() < bytes.size() ? "..." : "");
}

std::string show(const Configuration& configuration) {
    return show(configuration.total) + " " + show(configuration.data);
}

template <class Values>
std::string showAll(const Values& values) {
    std::string text;
    for (const auto& value : values) {
        text += (text.empty() ? "" : ",") + show(value);
    }
    return text;
}

template <class Map>
void add(Lines& lines, const std::string& prefix, const Map& map) {
    for (const auto& [key, value] : map) {
        lines.emplace_back(prefix + show(key), show(value));
    }
}

void addMemory(Lines& lines, const Memory& memory) {
    add(lines, "", memory.numbers);
    add(lines, "", memory.texts);
    for (size_t i = 0; i < std::size(memory.bands); ++i) {
        const auto& [count, values] = memory.bands[i];
        lines.emplace_back("bands." + show(i + 1), show(count) + " " + showAll(values));
    }
    for (size_t i = 0; i < memory.imsProfiles.size(); ++i) {
        lines.emplace_back("profile." + show(i), toHex(toBytes(memory.imsProfiles[i])));
    }
    add(lines, "mbn.", memory.configurations);
    add(lines, "mbn-selected.", memory.selected);
    add(lines, "mbn-active.", memory.active);
    add(lines, "property.", memory.properties);
    add(lines, "nv.", memory.nvItems.entries);
    add(lines, "efs.", memory.efsFiles.entries);
    add(lines, "prl.", memory.prls.entries);
}

}  // namespace

Lines Modem::describe() {
    Lines lines = mAtPort.describe();
    std::lock_guard lock(mMutex);
    for (const auto& [number, name] : SERVICES) {
        const Connection& connection = mLinks.connections[number];
        std::string text = connection.isUp ? "up" : connection.isOpen ? "open" : "closed";
        text += connection.bound >= 0 ? " bound " + show(connection.bound) : "";
        lines.emplace_back(std::string("service.") + name, text);
    }
    lines.emplace_back("subscribed", showAll(mLinks.subscribed));
    lines.emplace_back("indications", mLinks.indications ? "on" : "off");
    lines.emplace_back("radio-report", mRadioReport ? "on" : "off");
    addMemory(lines, mMemory);
    return lines;
}

}  // namespace fake
