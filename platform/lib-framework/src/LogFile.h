#pragma once

#include <cstddef>
#include <mutex>
#include <string>

/**
 * The last lines of the log, in the file that `OX_LOG_FILE` names when the first line comes; none
 * when it is not set. At 1 MiB the file is renamed and begins anew, so twice that is the most. What
 * the disk does not take is left out and not counted: the log itself is on stderr.
 *
 * Any thread may write. Several processes may share a file.
 */
class LogFile {
public:
    static LogFile& get();

    /** @param line one line or several, each with its newline */
    void write(const char* line, size_t size);

private:
    static constexpr size_t FILE_BYTES = 1 << 20;

    LogFile();

    void open();

    std::mutex mMutex;  ///< guards what follows; held while a line goes into the page cache
    std::string mPath;
    int mFile = -1;
    size_t mSize = 0;
};
