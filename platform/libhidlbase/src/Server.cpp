#include <fcntl.h>
#include <hidl/Transport.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <thread>

#include "Socket.h"
#include "runtime/RuntimeDir.h"

using android::sp;
using android::status_t;

namespace hal {

namespace {

constexpr auto RETRY_ACCEPT = std::chrono::milliseconds(100);

std::atomic<int> sClients{0};

/** Never destroyed: a thread may publish to the very end of the process. */
struct Registry {
    std::mutex lock;
    std::vector<Registration> registrations;
};

Registry& registry() {
    static Registry& registry = *new Registry;
    return registry;
}

/** A socket to remove at exit: by its owner, which a forked child is not. */
struct Socket {
    const pid_t owner;
    const std::string path;
};

/** Takes nothing from a successor, which has to wait until this process is gone. */
void removeAtExit(const std::string& path) {
    const auto remove = [](int, void* argument) {
        const std::unique_ptr<Socket> own(static_cast<Socket*>(argument));
        if (own->owner == getpid()) {
            unlink(own->path.c_str());
        }
    };
    auto own = std::make_unique<Socket>(Socket{getpid(), path});
    if (on_exit(remove, own.get()) == 0) {
        (void)own.release();
    }
}

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

/** Thrown when another one serves the name. */
struct NameTaken : std::system_error {
    NameTaken(const std::string& path, pid_t process)
        : system_error(
                  EEXIST, std::generic_category(),
                  path + " is served by " +
                          (process == 0 ? "a live process" : "process " + std::to_string(process))),
          holder(process) {}

    const pid_t holder;  ///< 0 when it has not written itself down yet
};

/** The lock on a name. While it is held, only its holder replaces the name's socket. */
UniqueFd lockName(const std::string& path) {
    UniqueFd lock(open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (lock.get() < 0) {
        fail(errno, path + ".lock");
    }
    char text[16] = {};
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            fail(errno, path + ".lock");
        }
        (void)!read(lock.get(), text, sizeof text - 1);
        throw NameTaken(path, atoi(text));
    }
    // For people and for whoever is refused: the process that holds the name.
    const int size = snprintf(text, sizeof text, "%d\n", getpid());
    if (ftruncate(lock.get(), 0) != 0 || write(lock.get(), text, static_cast<size_t>(size)) < 0) {
        fail(errno, path + ".lock");
    }
    return lock;
}

UniqueFd listenAt(const std::string& path, const sockaddr_un& address) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    unlink(path.c_str());
    if (fd.get() < 0 ||
        bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd.get(), MAX_CLIENTS) != 0) {
        fail(errno, path);
    }
    return fd;
}

void serveClient(UniqueFd client, const std::string& name, const sp<Stub>& object) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 ||
        peer.uid != getuid()) {
        return;
    }
    if (sClients.fetch_add(1) >= MAX_CLIENTS) {
        --sClients;
        return;
    }
    const auto connection = std::make_shared<Connection>(client.release());
    connection->exportObject(object);  // the first one, hence SERVICE_TARGET
    try {
        connection->start([name, pid = peer.pid, self = connection.get()] {
            if (const std::string reason = self->cutReason(); !reason.empty()) {
                fprintf(stderr, "%s: client %d cut off: %s\n", name.c_str(), pid, reason.c_str());
            }
            --sClients;
        });
    } catch (const std::system_error&) {
        --sClients;  // no thread to be had: the client sees the connection close, and may retry
    }
}

[[noreturn]] void acceptClients(int listener, const std::string& name, const sp<Stub>& object) {
    for (;;) {
        UniqueFd client(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        if (client.get() >= 0) {
            serveClient(std::move(client), name, object);
        } else if (errno != EINTR && errno != ECONNABORTED) {
            std::this_thread::sleep_for(RETRY_ACCEPT);  // out of files or memory: others give back
        }
    }
}

/** @throws std::system_error */
void serve(const std::string& descriptor, const std::string& name, const sp<Stub>& object) {
    if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos) {
        fail(EINVAL, "not a name of a service");
    }
    const std::string path = servicePath(descriptor, name);
    sockaddr_un address{};
    if (!socketAddress(path, &address)) {
        fail(ENAMETOOLONG,
             path + " is longer than " + std::to_string(sizeof address.sun_path - 1) + " bytes");
    }
    const std::string folder = path.substr(0, path.rfind('/'));
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        fail(errno, folder);
    }
    UniqueFd lock = lockName(path);
    UniqueFd listener = listenAt(path, address);
    std::thread(acceptClients, listener.get(), descriptor + "/" + name, object).detach();
    removeAtExit(path);
    listener.release();
    lock.release();  // held until the process ends
}

}  // namespace

std::string servicePath(const std::string& descriptor, const std::string& name) {
    return runtime::directory() + "/" + descriptor + "/" + name;
}

status_t publish(const std::string& descriptor, const std::string& name, const sp<Stub>& object) {
    Registration registration{descriptor, name, android::OK, "", getpid()};
    try {
        serve(descriptor, name, object);
    } catch (const std::system_error& error) {
        const auto* taken = dynamic_cast<const NameTaken*>(&error);
        registration.holder = taken != nullptr ? taken->holder : 0;
        registration.status = -error.code().value();
        registration.reason = error.what();
        fprintf(stderr, "%s/%s: %s\n", descriptor.c_str(), name.c_str(), error.what());
    }
    std::lock_guard lock(registry().lock);
    registry().registrations.push_back(registration);
    return registration.status;
}

std::vector<Registration> registrations() {
    std::lock_guard lock(registry().lock);
    return registry().registrations;
}

std::shared_ptr<Connection> connectToService(const std::string& descriptor,
                                             const std::string& name) {
    try {
        auto connection = Connection::connect(servicePath(descriptor, name), nullptr);
        if (connection != nullptr) {
            connection->closeWhenUnused();
        }
        return connection;
    } catch (const std::system_error&) {
        return nullptr;  // without a runtime folder there is no service either
    }
}

}  // namespace hal
