#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <framework/Errno.h>

/** Path of the file that lists the modem configurations (MBN) which the device carries. */
const char* mbnListFile();

/**
 * Reads that file, on the caller's thread: a regular file of at most 16 MiB, nothing else.
 *
 * @param func name of the function that the log lines belong to
 * @param mbns takes the names, in the order of the file; unchanged after a failure
 * @return 0, or 1: silently when the file cannot be opened, else with an error line
 */
Errno readMbnList(const char* func, std::vector<std::string>& mbns);

/**
 * Takes the names out of a list, one in each line: 16 characters, the name, and the file name that
 * ends it. Logs each name.
 */
std::vector<std::string> parseMbnList(const char* func, std::string_view list);
