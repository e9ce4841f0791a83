#pragma once

#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <utility>

namespace hal {

/** A file descriptor, closed with its owner. */
class UniqueFd {
public:
    explicit UniqueFd(int fd) : mFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : mFd(other.release()) {}
    UniqueFd& operator=(UniqueFd&&) = delete;
    ~UniqueFd() {
        if (mFd >= 0) {
            ::close(mFd);
        }
    }

    int get() const { return mFd; }
    int release() { return std::exchange(mFd, -1); }

private:
    int mFd;
};

/** False when the path is too long for an address. */
inline bool socketAddress(const std::string& path, sockaddr_un* address) {
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof address->sun_path) {
        return false;
    }
    memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

}  // namespace hal
