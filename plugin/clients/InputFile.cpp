#include "clients/InputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

InputFile::InputFile(const char* path) : mFd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
}

InputFile::~InputFile() {
    if (isOpen()) {
        close(mFd);
    }
}

bool InputFile::getStatus(struct stat& status) const {
    return fstat(mFd, &status) == 0;
}

ssize_t InputFile::read(void* buffer, size_t size) const {
    ssize_t count = 0;
    do {
        count = ::read(mFd, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}
