#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include <hidl/Table.h>

/** What modemctl tells about itself, from the interface's table and from its own options. */
namespace documents {

/** The commands, without those that nobody types. */
std::vector<const CLI::App*> commandsOf(const CLI::App& app);

/** The requests, one a line; aligned columns for a terminal. */
std::string list(bool json, bool aligned);

/** A request at length: signature, comment, an example, the answer's fields. */
std::string show(const hal::Method& method);

/** A completion script for bash, or for zsh by its emulation of bash's. */
std::string completion(const CLI::App& app, bool zsh);

/** A manual page in troff. */
std::string manPage(const CLI::App& app);

}  // namespace documents
