#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

constexpr int32_t OPERATING_MODE = 3;  ///< what the modem reports
constexpr size_t EFS_FILE_SIZE = 10240;

/** Something to measure, done once by `run`; the process ends when an answer is wrong. */
struct Work {
    std::string name;
    std::function<void()> run;
};

/** Hands an RRC state to the plug-in, as the modem's event thread does. */
void reportRrcState();

/** The requests, an event, the loading of files, and the baselines of all of them. `onLoad` counts
 * once. */
std::vector<Work> makeWorks(const std::string& folder);

/** Ends the process with a message when something does not hold that the figures rest on. */
void require(bool holds, const char* otherwise);
