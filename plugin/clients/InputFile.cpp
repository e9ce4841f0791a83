#include "clients/InputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

int openForReading(const char* path) {
    return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

ssize_t readFrom(int fd, void* buffer, size_t size) {
    ssize_t count = 0;
    do {
        count = read(fd, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}
