#include "runtime/UnixSocket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

namespace runtime {

namespace {

constexpr auto RETRY_ACCEPT = std::chrono::milliseconds(100);

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        fail(ENAMETOOLONG,
             path + " is longer than " + std::to_string(sizeof(address.sun_path) - 1) + " bytes");
    }
    path.copy(address.sun_path, path.size());
    return address;
}

UniqueFd makeSocket() {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd.get() < 0) {
        fail(errno, "socket");
    }
    return fd;
}

std::string lockOf(const std::string& path) {
    return path + ".lock";
}

/** A socket whose files are removed at exit, by the process that made them and no forked child. */
struct Files {
    const pid_t owner;
    const std::string path;
};

/**
 * Removes the socket and its lock file at exit, while the lock is still held: the file of that name
 * is then certainly this process's own, and not one that the next process has already locked.
 */
void removeAtExit(const std::string& path) {
    const auto remove = [](int, void* argument) {
        const std::unique_ptr<Files> own(static_cast<Files*>(argument));
        if (own->owner == getpid()) {
            unlink(own->path.c_str());
            unlink(lockOf(own->path).c_str());
        }
    };
    auto own = std::make_unique<Files>(Files{getpid(), path});
    if (on_exit(remove, own.get()) == 0) {
        (void)own.release();
    }
}

/**
 * Whether an open file is the one that has this name now. It is not when the process that held the
 * lock before removed the file after we had opened it.
 */
bool standsAt(const std::string& path, int fd) {
    struct stat opened {};
    struct stat named {};
    return fstat(fd, &opened) == 0 && stat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

/** Opens and locks the lock file of `path`; throws AddressTaken when another process has it. */
UniqueFd openLocked(const std::string& path) {
    UniqueFd lock(open(lockOf(path).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (lock.get() < 0) {
        fail(errno, lockOf(path));
    }
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            fail(errno, lockOf(path));
        }
        char holder[16] = {};
        (void)!read(lock.get(), holder, sizeof(holder) - 1);
        throw AddressTaken(path, atoi(holder));
    }
    return lock;
}

/** Takes the lock that allows to replace the socket at `path`, and writes this process into it. */
UniqueFd lock(const std::string& path) {
    UniqueFd lock = openLocked(path);
    while (!standsAt(lockOf(path), lock.get())) {
        lock = openLocked(path);
    }
    const std::string holder = std::to_string(getpid()) + '\n';
    if (ftruncate(lock.get(), 0) != 0 || write(lock.get(), holder.data(), holder.size()) < 0) {
        fail(errno, lockOf(path));
    }
    return lock;
}

[[noreturn]] void acceptAll(int listener, const std::function<void(UniqueFd&)>& serve,
                            const std::function<void(int, const std::string&)>& refuse) {
    for (;;) {
        UniqueFd connection(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        if (connection.get() < 0) {
            if (errno != EINTR && errno != ECONNABORTED) {
                std::this_thread::sleep_for(RETRY_ACCEPT);  // no descriptor is free
            }
            continue;
        }
        try {
            serve(connection);
        } catch (const std::system_error& error) {
            refuse(connection.get(), error.what());
        }
    }
}

}  // namespace

AddressTaken::AddressTaken(const std::string& path, pid_t process)
    : system_error(
              EEXIST, std::generic_category(),
              path + " is served by " +
                      (process == 0 ? "a live process" : "process " + std::to_string(process))),
      holder(process) {
}

void serveAt(const std::string& path, int backlog, std::function<void(UniqueFd&)> serve,
             std::function<void(int, const std::string&)> refuse) {
    const sockaddr_un address = addressOf(path);
    UniqueFd held = lock(path);
    const auto listener = std::make_shared<UniqueFd>(makeSocket());
    unlink(path.c_str());
    if (bind(listener->get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener->get(), backlog) != 0) {
        fail(errno, path);
    }
    std::thread([listener, serve = std::move(serve), refuse = std::move(refuse)] {
        acceptAll(listener->get(), serve, refuse);
    }).detach();
    removeAtExit(path);
    held.release();  // held until the process ends
}

UniqueFd connectTo(const std::string& path, std::chrono::milliseconds timeout) {
    const sockaddr_un address = addressOf(path);
    UniqueFd fd = makeSocket();
    const timeval limit{timeout.count() / 1000, timeout.count() % 1000 * 1000};
    if (setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) != 0 ||
        connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        // EAGAIN: the backlog was full, and the listener accepted nobody until the timeout.
        fail(errno == EAGAIN ? ETIMEDOUT : errno, path);
    }
    return fd;
}

pid_t ownUsersProcess(int connection) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        fail(errno, "peer");
    }
    if (peer.uid != getuid()) {
        fail(EPERM, "user " + std::to_string(peer.uid) + " is not served");
    }
    return peer.pid;
}

}  // namespace runtime
