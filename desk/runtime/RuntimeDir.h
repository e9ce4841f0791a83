#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

/** Where the desk keeps what a device keeps in its own places. */
namespace runtime {

/**
 * The folder of sockets, ports and properties: `OX_RUNTIME_DIR`, or a folder of this user's. It is
 * made with mode 0700 when missing.
 *
 * @throws std::system_error when it cannot be made, belongs to another user or is open to one
 */
inline std::string directory() {
    std::string path;
    if (const char* own = getenv("OX_RUNTIME_DIR"); own != nullptr && *own != '\0') {
        path = own;
    } else if (const char* xdg = getenv("XDG_RUNTIME_DIR"); xdg != nullptr && *xdg != '\0') {
        path = std::string(xdg) + "/ox-modem";
    } else {
        path = "/tmp/ox-modem-" + std::to_string(getuid());
    }
    struct stat info {};
    if ((mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) || lstat(path.c_str(), &info) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    if (!S_ISDIR(info.st_mode) || info.st_uid != getuid() || (info.st_mode & 077) != 0) {
        throw std::system_error(EACCES, std::generic_category(),
                                path + " is not a folder of this user's alone (mode 0700)");
    }
    return path;
}

/**
 * The folder of what outlives a restart of the machine, made when missing: with this user's other
 * state, or below the runtime folder when `OX_RUNTIME_DIR` is set or the user has no home.
 *
 * @throws std::system_error when it cannot be made
 */
inline std::string stateDirectory() {
    const auto variable = [](const char* name) -> std::string {
        const char* value = getenv(name);
        return value != nullptr ? value : "";
    };
    std::string path;
    if (variable("OX_RUNTIME_DIR").empty() && !variable("XDG_STATE_HOME").empty()) {
        path = variable("XDG_STATE_HOME") + "/ox-modem";
    } else if (variable("OX_RUNTIME_DIR").empty() && !variable("HOME").empty()) {
        path = variable("HOME") + "/.local/state/ox-modem";
    } else {
        path = directory() + "/state";
    }
    std::filesystem::create_directories(path);
    return path;
}

/** Name of the modem instance that this process serves, for paths: `OX_INSTANCE`, or "0". */
inline std::string instance() {
    const char* own = getenv("OX_INSTANCE");
    return own != nullptr && *own != '\0' ? own : "0";
}

/** The fake modem's text port. */
inline std::string fakeModemPort(const std::string& instance) {
    return directory() + "/fake-modem." + instance;
}

/** Link to the fake modem's AT port, a pseudo-terminal. */
inline std::string atPort(const std::string& instance) {
    return directory() + "/at-port." + instance;
}

/** The end of the log of an instance's host: `OX_LOG_FILE`, or a file of the runtime folder. */
inline std::string logFile(const std::string& instance) {
    const char* own = getenv("OX_LOG_FILE");
    return own != nullptr && *own != '\0' ? own : directory() + "/log." + instance;
}

/** What the log file held before it began anew. */
inline std::string olderLogFile(const std::string& logFile) {
    return logFile + ".1";
}

}  // namespace runtime
