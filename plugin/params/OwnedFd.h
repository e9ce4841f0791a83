#pragma once

#include <unistd.h>

/** A descriptor, or -1 for none, that is closed at the end. */
class OwnedFd {
public:
    explicit OwnedFd(int fd) : mFd(fd) {}
    ~OwnedFd() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;

    int get() const { return mFd; }

private:
    const int mFd;
};
