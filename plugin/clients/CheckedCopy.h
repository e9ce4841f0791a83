#pragma once

#include <cstddef>

/**
 * Copies `size` bytes to where there is room for `room`; stops the process, with a fatal line in
 * the name of `func`, when they do not fit.
 */
void checkedCopy(const char* func, void* to, size_t room, const void* from, size_t size);
