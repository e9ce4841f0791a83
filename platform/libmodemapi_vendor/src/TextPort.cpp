#include "TextPort.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

namespace sim {

namespace {

using Execute = std::function<std::string(const std::string&)>;

std::atomic<int> sConnections{0};

/** Removes the socket at `path` if nobody serves it any more; throws if somebody does. */
void removeStale(const std::string& path, const sockaddr* address, socklen_t size) {
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int error = connect(probe, address, size) == 0 ? 0 : errno;
    close(probe);
    if (error == 0 || error == EAGAIN) {  // EAGAIN: a live one with a full queue
        throw std::system_error(EADDRINUSE, std::generic_category(), path);
    }
    struct stat info {};
    if (error == ECONNREFUSED && lstat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode)) {
        unlink(path.c_str());
    }
}

int listenAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
    }
    path.copy(address.sun_path, path.size());
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    removeStale(path, generic, sizeof address);
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(server, generic, sizeof address) != 0 || listen(server, TEXT_CONNECTIONS_MAX) != 0) {
        const int error = errno;
        close(server);
        throw std::system_error(error, std::generic_category(), path);
    }
    return server;
}

bool sendAll(int fd, const std::string& text) {
    for (size_t sent = 0; sent < text.size();) {
        const ssize_t count = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        sent += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
}

/** Answers the whole lines at the start of `input` and removes them; false: the peer is gone. */
bool answerLines(int fd, std::string& input, const Execute& execute) {
    size_t begin = 0;
    for (size_t end; (end = input.find('\n', begin)) != input.npos; begin = end + 1) {
        if (!sendAll(fd, execute(input.substr(begin, end - begin)))) {
            return false;
        }
    }
    input.erase(0, begin);
    return true;
}

void serveConnection(int fd, const Execute& execute) {
    std::string input;
    char bytes[4096];
    ssize_t count = 0;
    while ((count = recv(fd, bytes, sizeof bytes, 0)) > 0 || (count < 0 && errno == EINTR)) {
        input.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
        if (!answerLines(fd, input, execute)) {
            return;
        }
        if (input.size() > TEXT_LINE_MAX) {
            sendAll(fd, "error: line above " + std::to_string(TEXT_LINE_MAX) + " bytes\n");
            return;
        }
    }
}

/** Serves a connection and closes it, on a thread of its own. */
void startConnection(int fd, const Execute& execute) {
    std::thread([fd, execute] {
        const timeval patience{5, 0};
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        if (++sConnections > TEXT_CONNECTIONS_MAX) {
            sendAll(fd, "error: too many connections\n");
        } else {
            serveConnection(fd, execute);
        }
        --sConnections;
        close(fd);
    }).detach();
}

}  // namespace

void serveTextPort(const std::string& path, Execute execute) {
    std::thread([server = listenAt(path), execute = std::move(execute)] {
        for (;;) {
            const int accepted = accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
            if (accepted >= 0) {
                startConnection(accepted, execute);
            } else if (errno != EINTR && errno != ECONNABORTED) {
                // Out of descriptors, most likely: they come back when a connection ends.
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        }
    }).detach();
}

}  // namespace sim
