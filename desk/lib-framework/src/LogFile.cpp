#include "LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runtime/ErrorOutput.h"
#include "runtime/RuntimeDir.h"

/** Never destroyed: threads log while the process exits. */
LogFile& LogFile::get() {
    static LogFile& file = *new LogFile;
    return file;
}

LogFile::LogFile() {
    const char* path = getenv("OX_LOG_FILE");
    if (path == nullptr || *path == '\0') {
        return;
    }
    mPath = path;
    if (const char* trouble = open(); trouble != nullptr) {
        runtime::ErrorOutput::get().print("the log is not kept in %s: %s", path, trouble);
    }
}

/**
 * Only a regular file is taken: a pipe or device could keep its writers waiting.
 *
 * @return what is wrong, and then nothing has changed; null when all is well
 */
const char* LogFile::open() {
    const int file = ::open(
            mPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
    struct stat info {};
    if (file < 0 || fstat(file, &info) != 0) {
        return strerror(errno);
    }
    if (!S_ISREG(info.st_mode)) {
        close(file);
        return "it is no regular file";
    }
    mFile = file;
    mSize = static_cast<size_t>(info.st_size);
    return nullptr;
}

/** Where the file cannot be renamed, such as in another user's folder, what it held goes. */
void LogFile::beginAnew() {
    const int former = mFile;
    const bool isAway = rename(mPath.c_str(), runtime::olderLogFile(mPath).c_str()) == 0;
    if ((isAway || errno == ENOENT) && open() == nullptr) {
        close(former);
    } else if (ftruncate(mFile, 0) == 0) {
        mSize = 0;
    }
}

/** @return bytes written */
size_t LogFile::append(const char* bytes, size_t size) {
    const auto written = static_cast<size_t>(std::max<ssize_t>(::write(mFile, bytes, size), 0));
    mSize += written;
    return written;
}

bool LogFile::write(const char* line, size_t size) {
    if (mPath.empty()) {
        return true;
    }
    const std::lock_guard lock(mMutex);
    if (mFile < 0) {
        return true;
    }
    if (mSize + size > FILE_BYTES) {
        beginAnew();
    }
    const bool goesOn = !mTorn || append("\n", 1) == 1;
    const size_t written = goesOn ? append(line, size) : 0;
    mTorn = !goesOn || (written > 0 && written < size);
    mLost += written < size ? 1 : 0;
    return written == size;
}
