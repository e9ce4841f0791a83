#include "TextPort.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <system_error>
#include <thread>

#include "runtime/UnixSocket.h"

namespace fake {

namespace {

using Clock = std::chrono::steady_clock;
using Execute = std::function<std::string(const std::string&)>;

std::atomic<int> sConnections{0};

constexpr Clock::time_point NEVER = Clock::time_point::max();

/** False when the socket cannot be used until then; NEVER waits for ever. */
bool waitFor(int fd, short what, Clock::time_point until) {
    int timeout = -1;
    if (until != NEVER) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        timeout = std::max(0, static_cast<int>(left.count()));
    }
    pollfd socket{fd, what, 0};
    return poll(&socket, 1, timeout) != 0;
}

/** The whole text has to go within the limit: a peer that takes a byte now and then is late. */
bool sendAll(int fd, const std::string& text) {
    const auto until = Clock::now() + TEXT_PATIENCE;
    for (size_t sent = 0; sent < text.size();) {
        const ssize_t count =
                send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno != EINTR && (errno != EAGAIN || !waitFor(fd, POLLOUT, until))) {
            return false;
        }
        sent += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
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
    std::string input;
    char bytes[4096];
    Clock::time_point lineDue = NEVER;
    for (;;) {
        if (!waitFor(fd, POLLIN, lineDue)) {
            refuse(fd, "line not completed in time");
            return;
        }
        const ssize_t count = recv(fd, bytes, sizeof(bytes), MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
            return;
        }
        const bool begun = !input.empty();
        input.append(bytes, count > 0 ? static_cast<size_t>(count) : 0);
        const size_t received = input.size();
        if (!answerLines(fd, input, execute)) {
            return;
        }
        if (input.size() > TEXT_LINE_MAX) {
            refuse(fd, "line above " + std::to_string(TEXT_LINE_MAX) + " bytes");
            return;
        }
        if (input.empty()) {
            lineDue = NEVER;
        } else if (!begun || input.size() != received) {  // the first bytes of a line
            lineDue = Clock::now() + TEXT_PATIENCE;
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
    const auto own = std::make_shared<runtime::UniqueFd>(std::move(connection));
    try {
        std::thread([own, slot, execute] { serveConnection(own->get(), execute); }).detach();
    } catch (const std::system_error&) {
        connection = std::move(*own);  // for the refusal
        throw;
    }
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
