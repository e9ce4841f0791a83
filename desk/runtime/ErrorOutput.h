#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>

namespace runtime {

/**
 * stderr for threads that must not wait long: a line goes out whole and soon, or it is counted as
 * lost. No lock is held while a line is written. Callable from any thread, at any time of the
 * process's life; the process ignores SIGPIPE.
 *
 * Whether the next write would block is not asked of stderr itself, as another writer could fill a
 * pipe between the question and the write; and stderr cannot be made non-blocking, as other
 * processes share it. A pipe or terminal is therefore opened once more, non-blocking, for this
 * process alone.
 */
class ErrorOutput {
public:
    /** Longest line in bytes, its newline included: a pipe takes no more than that in one piece. */
    static constexpr size_t LINE_MAX_BYTES = PIPE_BUF;

    static ErrorOutput& get() { return sOutput; }

    /** A full pipe gets so long, in ms, and no longer wait before its reader has taken something.
     */
    static constexpr int PATIENCE_MS = 100;

    /**
     * Writes a line that ends with a newline.
     *
     * @param patience milliseconds that the reader may take to make room
     * @return false when the line was lost, all or in part
     */
    bool write(const char* line, size_t size, int patience = PATIENCE_MS) {
        const Target target = find();
        if (patience == PATIENCE_MS && mStalled) {
            patience = 0;
        }
        size_t written = 0;
        if (!mTorn.exchange(false) || tryWrite(target, "\n", 1, patience) == 1) {
            written = tryWrite(target, line, size, patience);
            mTorn = written > 0 && written < size;
        } else {
            mTorn = true;
        }
        mStalled = written < size;
        mLost += written < size ? 1 : 0;
        return written == size;
    }

    /** Formats and writes a line; its newline is added. */
    __attribute__((format(printf, 2, 3))) void print(const char* format, ...) {
        char line[LINE_MAX_BYTES];
        va_list arguments;
        va_start(arguments, format);
        const int length = vsnprintf(line, sizeof(line) - 1, format, arguments);
        va_end(arguments);
        const size_t end = std::clamp<long>(length, 0, sizeof(line) - 2);
        line[end] = '\n';
        write(line, end + 1);
    }

    /** Number of lines lost since it was taken last. */
    uint64_t takeLost() { return mLost.exchange(0); }
    void addLost(uint64_t lines) { mLost += lines; }

private:
    struct Target {
        int fd;
        bool isSocket;
        bool mayBlock;  ///< a pipe or terminal that could not be opened once more
    };

    Target find() {
        struct stat info {};
        if (fstat(STDERR_FILENO, &info) != 0) {
            return {-1, false, false};
        }
        if (!S_ISFIFO(info.st_mode) && !S_ISCHR(info.st_mode)) {
            return {STDERR_FILENO, S_ISSOCK(info.st_mode), false};
        }
        const std::lock_guard lock(mMutex);
        const bool isKnown = mFd >= 0 && info.st_dev == mDevice && info.st_ino == mFile;
        if (!isKnown && !openAgain(info)) {
            return {STDERR_FILENO, false, true};
        }
        return {mFd, false, false};
    }

    bool openAgain(const struct stat& info) {
        const auto now = std::chrono::steady_clock::now();
        if (now < mRetry) {
            return false;
        }
        const int fresh = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (fresh < 0) {  // it belongs to another user, or is a pipe that nobody reads
            mRetry = now + std::chrono::seconds(1);
            return false;
        }
        if (mFd < 0) {
            mFd = fresh;
        } else {  // the number stays, as other threads may be writing to it
            dup3(fresh, mFd, O_CLOEXEC);
            close(fresh);
        }
        mDevice = info.st_dev;
        mFile = info.st_ino;
        return true;
    }

    /** @return bytes written */
    static size_t tryWrite(const Target& target, const char* bytes, size_t size, int patience) {
        using std::chrono::milliseconds;
        using Clock = std::chrono::steady_clock;
        const auto end = Clock::now() + milliseconds(patience);
        ssize_t count = tryOnce(target, bytes, size);
        while (count < 0 && errno == EAGAIN && Clock::now() < end) {  // others may take the room
            const auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
            pollfd room{target.fd, POLLOUT, 0};
            poll(&room, 1, static_cast<int>(left));
            count = tryOnce(target, bytes, size);
        }
        return static_cast<size_t>(std::max<ssize_t>(count, 0));
    }

    static ssize_t tryOnce(const Target& target, const char* bytes, size_t size) {
        pollfd room{target.fd, POLLOUT, 0};
        if (target.mayBlock && (poll(&room, 1, 0) != 1 || (room.revents & POLLERR) != 0)) {
            errno = EAGAIN;
            return -1;
        }
        ssize_t count = 0;
        do {
            count = target.isSocket ? send(target.fd, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL)
                                    : ::write(target.fd, bytes, size);
        } while (count < 0 && errno == EINTR);
        return count;
    }

    static ErrorOutput sOutput;

    std::atomic<uint64_t> mLost{0};
    std::atomic<bool> mTorn{false};     ///< the last line has no end yet
    std::atomic<bool> mStalled{false};  ///< the last line was lost

    std::mutex mMutex;  ///< guards what follows, never during a write
    int mFd = -1;       ///< stderr, opened once more
    dev_t mDevice = 0;
    ino_t mFile = 0;
    std::chrono::steady_clock::time_point mRetry{};  ///< not opened before, as that failed
};

inline ErrorOutput ErrorOutput::sOutput;

}  // namespace runtime
