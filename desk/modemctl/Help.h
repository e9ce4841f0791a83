#pragma once

#include <string>

#include <hidl/Table.h>

/** What modemctl tells about itself, from the interface's table. */
namespace help {

/** The requests, with the QMI service, the function of the modem API and a sentence below each. */
std::string list(bool json);

/** A request at length: signature, comment, function, an example, the answer's fields. */
std::string show(const hal::Method& method, bool json);

/** A completion script for bash, or for zsh by its emulation of bash's; it asks modemctl. */
std::string completion(bool zsh);

}  // namespace help
