#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>

/**
 * A file that is open for reading, and closed at the end. Opening never waits: a path that names a
 * pipe nobody writes to, or a device, does not hold up the thread.
 */
class InputFile {
public:
    explicit InputFile(const char* path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    bool isOpen() const { return mFd != -1; }

    /** `fstat`; false with errno, also when the file is not open. */
    bool getStatus(struct stat& status) const;

    /** Reads up to `size` bytes; their number, 0 at the end, or -1 with errno. */
    ssize_t read(void* buffer, size_t size) const;

private:
    const int mFd;
};
