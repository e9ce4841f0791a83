#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <system_error>
#include <utility>

/** Unix stream sockets as all of the desk's services use them. Any thread may call any of these. */
namespace runtime {

/** A file descriptor, closed with its owner; -1 for none. */
class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : mFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : mFd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(mFd, other.mFd);
        return *this;
    }
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

/** Thrown when a live process listens at the path already; its code is EEXIST. */
struct AddressTaken : std::system_error {
    AddressTaken(const std::string& path, pid_t process);

    const pid_t holder;  ///< that process; 0 when it has not written itself down yet
};

/**
 * Listens at `path` until the process ends, and accepts connections on a thread of its own; the
 * socket's file is removed when it ends by `exit`. A file `path`.lock tells a live socket, which is
 * left alone, from a stale one, which is replaced.
 *
 * @param backlog connections that may wait to be accepted
 * @param serve takes a connection over. It may throw std::system_error (no thread, another user):
 *        the peer is told by `refuse`, and the connection is closed
 * @param refuse tells the peer of that descriptor the reason; must not wait for it
 * @throws AddressTaken, or std::system_error with ENAMETOOLONG or what the system says; then nobody
 *         has the path
 */
void serveAt(const std::string& path, int backlog, std::function<void(UniqueFd&)> serve,
             std::function<void(int, const std::string&)> refuse);

/**
 * Connects to a socket.
 *
 * @param timeout how long a listener that does not accept may hold the caller
 * @throws std::system_error; its text begins with the path
 */
UniqueFd connectTo(const std::string& path, std::chrono::milliseconds timeout);

/** The process at the other end, at the time when it connected; throws when it is another user's.
 */
pid_t ownUsersProcess(int connection);

}  // namespace runtime
