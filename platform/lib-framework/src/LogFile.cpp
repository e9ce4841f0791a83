#include "LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "runtime/RuntimeDir.h"

/** Never destroyed: threads log while the process exits. */
LogFile& LogFile::get() {
    static LogFile& file = *new LogFile;
    return file;
}

LogFile::LogFile() {
    const char* path = getenv("OX_LOG_FILE");
    if (path != nullptr && *path != '\0') {
        mPath = path;
        open();
    }
}

/** Only a regular file is taken: a pipe or device could keep its writers waiting. */
void LogFile::open() {
    mFile = ::open(mPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY,
                   0600);
    struct stat info {};
    if (mFile >= 0 && (fstat(mFile, &info) != 0 || !S_ISREG(info.st_mode))) {
        close(mFile);
        mFile = -1;
    }
    mSize = static_cast<size_t>(info.st_size);
}

void LogFile::write(const char* line, size_t size) {
    if (mPath.empty()) {
        return;
    }
    const std::lock_guard lock(mMutex);
    if (mFile >= 0 && mSize + size > FILE_BYTES) {
        rename(mPath.c_str(), runtime::olderLogFile(mPath).c_str());
        close(mFile);
        open();
    }
    mSize += size;
    if (mFile >= 0) {
        [[maybe_unused]] const ssize_t written = ::write(mFile, line, size);
    }
}
