#pragma once

#include <sys/types.h>

#include <cstddef>

/**
 * Opens a file for reading; -1 with errno. Never waits: a path that names a pipe nobody writes to,
 * or a device, does not hold up the thread.
 */
int openForReading(const char* path);

/** Reads up to `size` bytes; their number, 0 at the end, or -1 with errno. */
ssize_t readFrom(int fd, void* buffer, size_t size);
