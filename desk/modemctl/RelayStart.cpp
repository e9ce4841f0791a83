// How the other processes find the relay, and start it.

#include <fcntl.h>
#include <hidl/Transport.h>
#include <spawn.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <system_error>

#include "Failure.h"
#include "Relay.h"
#include "runtime/UnixSocket.h"

namespace relay {

using namespace std::chrono_literals;

std::string descriptor() {
    return "modemctl@1.0::Relay";
}

std::string name(int instance) {
    return "instance" + std::to_string(instance);
}

int holder(int instance) {
    try {
        const auto socket = runtime::connectTo(hal::servicePath(descriptor(), name(instance)), 1s);
        return runtime::ownUsersProcess(socket.get());
    } catch (const std::system_error&) {
        return 0;
    }
}

void start(int instance) {
    const std::string number = std::to_string(instance);
    const char* words[] = {"modemctl", "--instance", number.c_str(), "relay", nullptr};
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&files, fd, "/dev/null", O_RDWR, 0);
    }
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A session of its own: Ctrl-C and Ctrl-Z of a terminal are not meant for it.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t process = 0;
    const int error = posix_spawn(&process, "/proc/self/exe", &files, &attributes,
                                  const_cast<char**>(words), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw Failure(NO_SERVICE, std::string("cannot start the relay: ") + strerror(error));
    }
}

}  // namespace relay
