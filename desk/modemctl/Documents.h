#pragma once

#include <string>

#include <hidl/Table.h>

/** What modemctl tells about itself, from the interface's table. */
namespace documents {

/** The requests, one a line. */
std::string list(bool json);

/** A request at length: signature, comment, an example, the answer's fields. */
std::string show(const hal::Method& method);

/** A completion script for bash, or for zsh by its emulation of bash's; it asks modemctl. */
std::string completion(bool zsh);

}  // namespace documents
