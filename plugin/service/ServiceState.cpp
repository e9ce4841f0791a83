#include "service/ServiceState.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <ctime>

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

/** For what not every client has. */
const char* yesNo(const std::optional<bool>& value) {
    return value ? yesNo(*value) : "-";
}

void appendRow(std::string& text, const ServiceState::Client& client) {
    const ClientState& state = client.state;
    if (!client.present) {
        append(text, "%-6s  absent\n", client.name);
        return;
    }
    const std::string retries = state.bindRetries ? std::to_string(*state.bindRetries) : "-";
    append(text, "%-6s  %-9s  %-5s  %7s  %-12s  %9" PRIu64 "  %9" PRIu64 "  %9" PRIu64 "\n",
           client.name, yesNo(state.connected), yesNo(state.bound), retries.c_str(),
           yesNo(state.openCommand), state.taken, state.answered, state.refused);
}

void appendObject(std::string& text, const ServiceState::Client& client) {
    const ClientState& state = client.state;
    append(text, "{\"name\":\"%s\",\"present\":%s", client.name, trueFalse(client.present));
    if (client.present) {
        append(text, ",\"connected\":%s", trueFalse(state.connected));
        if (state.bound) {
            append(text, ",\"bound\":%s", trueFalse(*state.bound));
        }
        if (state.bindRetries) {
            append(text, ",\"retries\":%d", *state.bindRetries);
        }
        if (state.openCommand) {
            append(text, ",\"openCommand\":%s", trueFalse(*state.openCommand));
        }
        append(text, ",\"taken\":%" PRIu64 ",\"answered\":%" PRIu64 ",\"refused\":%" PRIu64,
               state.taken, state.answered, state.refused);
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

/** One write that does not wait, to a socket or anything else; -1 with errno. */
ssize_t writeSome(int fd, const char* data, size_t size) {
    const ssize_t sent = send(fd, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent >= 0 || errno != ENOTSOCK) {
        return sent;
    }
    pollfd room{fd, POLLOUT, 0};
    if (poll(&room, 1, 0) == 0) {
        errno = EAGAIN;
        return -1;
    }
    return write(fd, data, size);
}

}  // namespace

std::string toText(const ServiceState& state) {
    std::string text;
    append(text, "instance: %d\n", state.instanceId);
    append(text, "callbacks: answers %s, events %s\n", yesNo(state.answers),
           yesNo(state.indications));
    append(text, "kept events: RRC state %s, power save mode %s\n", yesNo(state.keptRrcState),
           yesNo(state.keptPowerSaveMode));
    append(text, "%-6s  %-9s  %-5s  %7s  %-12s  %9s  %9s  %9s\n", "client", "connected", "bound",
           "retries", "open command", "taken", "answered", "refused");
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
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = writeSome(fd, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return 0;
}
