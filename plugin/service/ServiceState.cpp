#include "service/ServiceState.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <iterator>

#include "params/OwnedFd.h"

namespace {

__attribute__((format(printf, 2, 3))) void append(std::string& text, const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    text += line;
}

const char* yesNo(bool value) {
    return value ? "yes" : "no";
}

const char* trueFalse(bool value) {
    return value ? "true" : "false";
}

/** One value of a client's state, and how it is shown. */
struct Column {
    const char* title;
    const char* key;  ///< in the JSON object, which leaves out what a client does not have
    int width;        ///< in the table; negative for text on the left
    bool isFlag;
    std::optional<uint64_t> (*value)(const ClientState& state);
};

using Value = std::optional<uint64_t>;
constexpr Column COLUMNS[] = {
        {"connected", "connected", -9, true,
         [](const auto& state) { return Value(state.connected); }},
        {"bound", "bound", -5, true, [](const auto& state) { return Value(state.bound); }},
        {"retries", "retries", 7, false,
         [](const auto& state) { return Value(state.bindRetries); }},
        {"open command", "openCommand", -12, true,
         [](const auto& state) { return Value(state.openCommand); }},
        {"taken", "taken", 9, false, [](const auto& state) { return Value(state.taken); }},
        {"answered", "answered", 9, false, [](const auto& state) { return Value(state.answered); }},
        {"refused", "refused", 9, false, [](const auto& state) { return Value(state.refused); }},
};

void appendCell(std::string& text, const Column& column, const char* cell) {
    append(text, "  %*s", column.width, cell);
    text += &column == std::end(COLUMNS) - 1 ? "\n" : "";
}

void appendRow(std::string& text, const ServiceState::Client& client) {
    append(text, "%-6s", client.name);
    if (!client.present) {
        text += "  absent\n";
        return;
    }
    for (const Column& column : COLUMNS) {
        const Value value = column.value(client.state);
        const std::string cell = !value          ? "-"
                                 : column.isFlag ? yesNo(*value != 0)
                                                 : std::to_string(*value);
        appendCell(text, column, cell.c_str());
    }
}

void appendObject(std::string& text, const ServiceState::Client& client) {
    append(text, "{\"name\":\"%s\",\"present\":%s", client.name, trueFalse(client.present));
    for (const Column& column : COLUMNS) {
        const Value value = client.present ? column.value(client.state) : std::nullopt;
        if (value) {
            const std::string shown =
                    column.isFlag ? trueFalse(*value != 0) : std::to_string(*value);
            append(text, ",\"%s\":%s", column.key, shown.c_str());
        }
    }
    text += '}';
}

/** While it lives, a write of this thread to a pipe without a reader raises no SIGPIPE. */
class WithoutSigpipe {
public:
    WithoutSigpipe() {
        sigemptyset(&mPipe);
        sigaddset(&mPipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        mWasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &mPipe, &mBefore);
    }
    ~WithoutSigpipe() {
        constexpr timespec NO_TIME{};
        // Takes the signal that the write left pending, but none that was pending before.
        while (!mWasPending && sigtimedwait(&mPipe, nullptr, &NO_TIME) == -1 && errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
    }
    WithoutSigpipe(const WithoutSigpipe&) = delete;
    WithoutSigpipe& operator=(const WithoutSigpipe&) = delete;

private:
    sigset_t mPipe;
    sigset_t mBefore;
    bool mWasPending;
};

/** Moves the text into a pipe by way of one of our own: a splice alone does not wait for room. */
ssize_t writeToPipe(int fd, const char* data, size_t size) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        return -1;
    }
    const OwnedFd out(ends[0]);
    const OwnedFd in(ends[1]);
    const ssize_t filled = write(in.get(), data, size);
    return filled <= 0 ? filled
                       : splice(out.get(), nullptr, fd, nullptr, static_cast<size_t>(filled),
                                SPLICE_F_NONBLOCK);
}

/** Writes to a terminal or another device, opened anew: the flags of `fd` are the caller's. */
ssize_t writeToDevice(int fd, const char* data, size_t size) {
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    const OwnedFd own(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return own.get() < 0 ? -1 : write(own.get(), data, size);
}

/** One write that does not wait; -1 with errno. */
ssize_t writeSome(int fd, const char* data, size_t size) {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return -1;
    }
    switch (status.st_mode & S_IFMT) {
        case S_IFSOCK:
            return send(fd, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        case S_IFIFO:
            return writeToPipe(fd, data, size);
        case S_IFCHR:
            return writeToDevice(fd, data, size);
        case S_IFREG:
            return write(fd, data, size);
        default:  // an event counter, say, whose write may wait
            errno = EINVAL;
            return -1;
    }
}

}  // namespace

std::string toText(const ServiceState& state) {
    std::string text;
    append(text, "instance: %d\n", state.instanceId);
    append(text, "callbacks: answers %s, events %s\n", yesNo(state.answers),
           yesNo(state.indications));
    append(text, "kept events: RRC state %s, power save mode %s\n", yesNo(state.keptRrcState),
           yesNo(state.keptPowerSaveMode));
    append(text, "%-6s", "client");
    for (const Column& column : COLUMNS) {
        appendCell(text, column, column.title);
    }
    for (const ServiceState::Client& client : state.clients) {
        appendRow(text, client);
    }
    return text;
}

std::string toJson(const ServiceState& state) {
    std::string text;
    append(text, "{\"instance\":%d,\"callbacks\":{\"answers\":%s,\"events\":%s},", state.instanceId,
           trueFalse(state.answers), trueFalse(state.indications));
    append(text, "\"kept\":{\"rrcState\":%s,\"powerSaveMode\":%s},\"clients\":[",
           trueFalse(state.keptRrcState), trueFalse(state.keptPowerSaveMode));
    for (const ServiceState::Client& client : state.clients) {
        appendObject(text, client);
        text += &client == &state.clients.back() ? "]}\n" : ",";
    }
    return text;
}

int writeAtOnce(int fd, const std::string& text) {
    const WithoutSigpipe guard;
    const ssize_t count = writeSome(fd, text.data(), text.size());
    if (count < 0) {
        return errno;
    }
    return static_cast<size_t>(count) == text.size() ? 0 : EAGAIN;
}
