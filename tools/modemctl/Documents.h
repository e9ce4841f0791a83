#pragma once

#include <CLI/CLI.hpp>
#include <string>

/** What modemctl tells about itself, from the interface's table and from its own options. */
namespace documents {

/** The requests, one a line; aligned columns for a terminal. */
std::string list(bool json, bool aligned);

/** A bash completion script. */
std::string bashCompletion(const CLI::App& app);

/** A manual page in troff. */
std::string manPage(const CLI::App& app);

}  // namespace documents
