#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Failure.h"

namespace logs {

/** What `modemctl log` was asked for. */
struct Options {
    std::string trace;  ///< file for trace-event JSON, "" for none
    std::string svg;    ///< file for a picture, "" for none
    bool all = false;
};

/** Adds the options to the subcommand; they are filled when it is parsed. */
void addOptions(CLI::App& app, Options& options);

/**
 * Reads a log to its end, or until Ctrl-C, and prints what it tells.
 *
 * @param file "" or "-" is stdin
 * @throws Failure with WRONG_USAGE when the file cannot be read or one cannot be written
 */
ExitCode run(const Options& options, bool json, const std::string& file);

/**
 * What went wrong with a request, from the file that an instance's host keeps of its log: the
 * plug-in's warnings and errors, and what was last seen of it when it was not answered. Empty for
 * one that went well or is not in the file.
 *
 * @throws std::exception when the file cannot be read
 */
std::vector<std::string> whyOf(int instance, const std::string& method, int32_t serial);

}  // namespace logs
