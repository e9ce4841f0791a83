#pragma once

#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Scheduler.h"
#include "Text.h"
#include "modem_api.h"

namespace fake {

constexpr size_t NV_ITEM_LARGEST = 512;
constexpr size_t FILE_LARGEST = 10240;

/** Byte contents, each under two numbers, such as an NV item under its selector and its number. */
class Store {
public:
    using Key = std::pair<int64_t, int64_t>;
    using Entries = std::map<Key, Bytes>;

    explicit Store(size_t largest) : mLargest(largest) {}

    /** Gives a result of the modem API: too large, or a full store, is INVALID_PARAM. */
    int write(Key key, const uint8_t* data, size_t size);
    const Bytes* find(Key key) const;
    bool erase(Key key) { return entries.erase(key) != 0; }

    Entries entries;

private:
    size_t mLargest;
};

/** A modem configuration: what has come of its `total` bytes. */
struct Configuration {
    size_t total = 0;
    Bytes data;

    bool isComplete() const { return data.size() == total; }

    /**
     * Adds a chunk, of at most `ofTotal` bytes. Chunks carry no offset: another total, a chunk
     * beyond the end, or one behind a complete load begins anew.
     */
    void add(const uint8_t* chunk, size_t length, size_t ofTotal);
};

struct Bands {
    uint32_t count;
    std::vector<uint32_t> values;
};

/** The value of a key that the modem itself uses; without one, names the key that Memory lacks. */
template <class Values>
auto& valueOf(Values& values, const std::string& key) {
    const auto found = values.find(key);
    if (found == values.end()) {
        throw std::logic_error("the fake modem's Memory has no default for '" + key + '\'');
    }
    return found->second;
}

/** The configuration that the modem has of its own. */
constexpr char FACTORY_CONFIGURATION[] = "factory";

/** What the modem remembers. A restart keeps it. Not locked: see Modem::with(). */
struct Memory {
    /** Plain values, by the names that the text port has for them. */
    std::map<std::string, int64_t> numbers = {
            {"operating-mode", 0},       {"nr-network-mode", 0},  {"vonr-mode", 0},
            {"nr-deprioritized", 0},     {"ims-state", 1},        {"sar-state", 0},
            {"agps-test-mode", 0},       {"power-save-mode", 0},  {"power-save-status", 0},
            {"simlock-status", 0},       {"simlock-category", 0}, {"simlock-retries", 10},
            {"fuse-status", 1},          {"debug-value", 0},      {"rat-mask", 1},
            {"rrc-connected", 1},        {"latency-ms", 1},  // of answers and events
            {"restart-ms", 100},                             // from services lost to services back
            {"radio-interval-ms", 1000},                     // between two radio reports
            {"at-timeout-ms", 60000},  // until a held AT command ends with an error
    };
    std::map<std::string, std::string> texts = {{"build-time", "Jan 15 2024 10:30:00"},
                                                {"build-id", "SIMULATED.MODEM.1.0-00001"},
                                                {"mbn-by-name", ""}};
    std::map<std::string, std::string> properties = {};
    Store nvItems{NV_ITEM_LARGEST};
    Store efsFiles{FILE_LARGEST};  ///< by sub-selector and file
    Store prls{FILE_LARGEST};      ///< by selector and 0
    std::map<std::string, Configuration> configurations = {
            {FACTORY_CONFIGURATION, Configuration{1, {0}}}};
    std::map<int32_t, std::string> selected = {};  ///< configuration by type
    std::map<int32_t, std::string> active = {{0, FACTORY_CONFIGURATION},
                                             {1, FACTORY_CONFIGURATION}};
    std::vector<modem_ims_profile> imsProfiles = {{{1}}, {{2}}};
    Bands bands[5] = {{3, {1, 3, 8}}, {2, {1, 8}}, {5, {1, 3, 7, 20, 28}}, {2, {1, 78}}, {1, {78}}};
    modem_nr_radio_info_event radio{{},     1,
                                    1,      {1},
                                    640000, {11, 12, 13, 14},
                                    1,      0,
                                    500,    {21, 22, 23, 24},
                                    1,      {{31, 32, 33, 34}}};

    /** Forgets configurations that have come in part: the load was interrupted. */
    void dropUnfinished();

    Milliseconds time(const char* name) const { return Milliseconds(valueOf(numbers, name)); }
};

/** Copies `text`, at most `room` characters of it. */
inline std::string boundedText(const char* text, size_t room) {
    return {text, strnlen(text, room)};
}

}  // namespace fake
