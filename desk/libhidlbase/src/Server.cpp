#include <fcntl.h>
#include <hidl/Transport.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "runtime/ErrorOutput.h"
#include "runtime/RuntimeDir.h"
#include "runtime/UnixSocket.h"

using android::sp;
using android::status_t;

namespace hal {

namespace {

/** Never destroyed: a thread may publish to the very end of the process. */
struct Registry {
    std::mutex lock;
    std::vector<Registration> registrations;
};

Registry& registry() {
    static Registry& registry = *new Registry;
    return registry;
}

/** A place among the clients that are served; throws std::system_error when none is free. */
std::shared_ptr<void> takeSlot(const std::shared_ptr<std::atomic<int>>& clients) {
    const std::shared_ptr<void> slot(nullptr, [clients](void*) { --*clients; });
    if (++*clients > MAX_CLIENTS) {
        throw std::system_error(EBUSY, std::generic_category(),
                                std::to_string(MAX_CLIENTS) +
                                        " clients are connected, which is the most that can be");
    }
    return slot;
}

/** Throws std::system_error when the client cannot be served. */
void serveClient(runtime::UniqueFd& client, const std::string& name, const sp<Stub>& object,
                 const std::shared_ptr<std::atomic<int>>& clients) {
    const pid_t pid = runtime::ownUsersProcess(client.get());
    const auto slot = takeSlot(clients);
    // The connection has the descriptor of its own, so that a refusal can still be told here.
    runtime::UniqueFd own(fcntl(client.get(), F_DUPFD_CLOEXEC, 0));
    if (own.get() < 0) {
        throw std::system_error(errno, std::generic_category(), "descriptor");
    }
    const auto connection = std::make_shared<Connection>(own.release());
    connection->exportObject(object);  // the first one, hence SERVICE_TARGET
    const auto ended = [name, pid, slot, self = connection.get()] {
        if (const std::string reason = self->cutReason(); !reason.empty()) {
            runtime::ErrorOutput::get().print("%s: client %d cut off: %s", name.c_str(), pid,
                                              reason.c_str());
        }
    };
    connection->start(ended, true);
}

/** @throws std::system_error */
void serve(const std::string& descriptor, const std::string& name, const sp<Stub>& object) {
    if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos) {
        throw std::system_error(EINVAL, std::generic_category(), "not a name of a service");
    }
    const std::string path = servicePath(descriptor, name);
    const std::string folder = path.substr(0, path.rfind('/'));
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    runtime::serveAt(
            path, MAX_CLIENTS,
            [object, text = descriptor + "/" + name,
             clients = std::make_shared<std::atomic<int>>(0)](runtime::UniqueFd& client) {
                serveClient(client, text, object, clients);
            },
            Connection::refuse);
}

}  // namespace

std::string servicePath(const std::string& descriptor, const std::string& name) {
    return runtime::directory() + "/" + descriptor + "/" + name;
}

status_t publish(const std::string& descriptor, const std::string& name, const sp<Stub>& object) {
    Registration registration{descriptor, name, android::OK, "", getpid(), object};
    try {
        serve(descriptor, name, object);
    } catch (const std::system_error& error) {
        const auto* taken = dynamic_cast<const runtime::AddressTaken*>(&error);
        registration.holder = taken != nullptr ? taken->holder : 0;
        registration.status = -error.code().value();
        registration.reason = error.what();
        runtime::ErrorOutput::get().print("%s/%s: %s", descriptor.c_str(), name.c_str(),
                                          error.what());
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
