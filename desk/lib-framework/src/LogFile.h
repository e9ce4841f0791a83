#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

/**
 * The last lines of the log, in the file that `OX_LOG_FILE` names when the first line comes; none
 * when it is not set. At 1 MiB the file is renamed and begins anew, so twice that is the most. A
 * file that cannot be kept is told on stderr.
 *
 * Any thread may write. Several processes may share a file.
 */
class LogFile {
public:
    static LogFile& get();

    /**
     * @param line one line or several, each with its newline
     * @return false when the disk took it not at all or in part: it is counted as lost
     */
    bool write(const char* line, size_t size);

    /** Number of lines lost since it was taken last. */
    uint64_t takeLost() { return mLost.exchange(0); }
    void addLost(uint64_t lines) { mLost += lines; }

private:
    static constexpr size_t FILE_BYTES = 1 << 20;

    LogFile();

    const char* open();
    void beginAnew();
    size_t append(const char* bytes, size_t size);

    std::atomic<uint64_t> mLost{0};

    std::mutex mMutex;  ///< guards what follows; held while a line goes into the page cache
    std::string mPath;
    int mFile = -1;
    size_t mSize = 0;
    bool mTorn = false;  ///< the last line has no end yet
};
