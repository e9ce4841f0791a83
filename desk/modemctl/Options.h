#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

/** What stands on the command line in front of or behind the commands. */
struct Options {
    bool json = false;
    double timeout = 10;  ///< seconds
    int instance = 0;
    std::optional<int32_t> serial;  ///< without: one that is free
    double wait = 0;                ///< seconds for the service to come
    bool follow = false;
    bool why = false;
    std::optional<std::string> device;  ///< serial of a device, "" for the only one
    std::string out;                    ///< file for the bytes of an answer, "" for none
    bool all = false;
    bool stamps = false;
    bool confirmLog = false;
    uint64_t count = std::numeric_limits<uint64_t>::max();

    std::chrono::milliseconds patience() const {
        return std::chrono::milliseconds(static_cast<int64_t>(timeout * 1000));
    }
};

/** A line of modemctl's own, on stderr. */
void note(const std::string& text);
