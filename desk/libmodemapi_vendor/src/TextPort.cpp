#include "TextPort.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <system_error>
#include <thread>

#include "runtime/UnixSocket.h"

namespace fake {

namespace {

using Execute = std::function<std::string(const std::string&)>;

std::atomic<int> sConnections{0};

/** False when the peer is gone, or has not taken all in time. */
bool sendAll(int fd, const std::string& text) {
    return send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

void refuse(int fd, const std::string& reason) {
    const std::string line = "error: " + reason + "\n";
    // A fresh socket has room for it; a peer that is gone needs no reason.
    (void)!send(fd, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
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
    const timeval patience{TEXT_PATIENCE.count(), 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    std::string input;
    char bytes[4096];
    for (;;) {
        const ssize_t count = recv(fd, bytes, sizeof(bytes), 0);
        const bool isLate = count < 0 && errno == EAGAIN;
        if (isLate && !input.empty()) {
            refuse(fd, "line not completed in time");
            return;
        }
        if (count == 0 || (count < 0 && !isLate && errno != EINTR)) {
            return;
        }
        input.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
        if (!answerLines(fd, input, execute)) {
            return;
        }
        if (input.size() > TEXT_LINE_MAX) {
            refuse(fd, "line above " + std::to_string(TEXT_LINE_MAX) + " bytes");
            return;
        }
    }
}

/** Serves a connection on a thread of its own; throws std::system_error when it cannot. */
void startConnection(runtime::UniqueFd& connection, const Execute& execute) {
    runtime::ownUsersProcess(connection.get());
    const std::shared_ptr<void> slot(nullptr, [](void*) { --sConnections; });
    if (++sConnections > TEXT_CONNECTIONS_MAX) {
        throw std::system_error(EBUSY, std::generic_category(), "too many connections");
    }
    std::thread([fd = connection.get(), slot, execute] {
        const runtime::UniqueFd own(fd);
        serveConnection(fd, execute);
    }).detach();
    (void)connection.release();
}

}  // namespace

void serveTextPort(const std::string& path, Execute execute) {
    runtime::serveAt(
            path, TEXT_CONNECTIONS_MAX,
            [execute = std::move(execute)](runtime::UniqueFd& connection) {
                startConnection(connection, execute);
            },
            refuse);
}

}  // namespace fake
