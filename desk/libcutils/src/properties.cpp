#include <cutils/properties.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <string>
#include <system_error>

#include "runtime/ErrorOutput.h"
#include "runtime/RuntimeDir.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t VALUE_MAX_LENGTH = PROPERTY_VALUE_MAX - 1;
constexpr ptrdiff_t PROPERTIES_MAX = 256;

/** Held while a property is written: the threads of a process share one scratch file. */
std::mutex sMutex;

/** One file a property. Makes the folder when missing; throws std::system_error. */
fs::path folder() {
    const fs::path path = runtime::stateDirectory() + "/properties";
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    return path;
}

bool isKey(const char* key) {
    return key != nullptr && *key != '\0' && *key != '.' && strchr(key, '/') == nullptr;
}

/** False when a property that is not there yet would be one more than PROPERTIES_MAX. */
bool hasPlace(const fs::path& file) {
    return fs::exists(file) ||
           std::distance(fs::directory_iterator(file.parent_path()), {}) < PROPERTIES_MAX;
}

/** Writes a scratch file and renames it, so that a reader finds the old text or the new one. */
bool store(const fs::path& file, const char* value, size_t length) {
    const fs::path scratch = file.parent_path() / (".new-" + std::to_string(getpid()));
    const int fd = open(scratch.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    bool isStored = fd >= 0 && write(fd, value, length) == static_cast<ssize_t>(length);
    isStored = fd >= 0 && close(fd) == 0 && isStored && rename(scratch.c_str(), file.c_str()) == 0;
    if (!isStored) {
        unlink(scratch.c_str());
    }
    return isStored;
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    ssize_t length = 0;
    if (isKey(key)) {
        try {
            const int fd = open((folder() / key).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
            if (fd >= 0) {
                length = read(fd, value, VALUE_MAX_LENGTH);
                close(fd);
            }
        } catch (const std::exception& error) {
            runtime::ErrorOutput::get().print("properties: %s", error.what());
        }
    }
    if (length <= 0) {
        length = default_value != nullptr ? strnlen(default_value, VALUE_MAX_LENGTH) : 0;
        memcpy(value, default_value != nullptr ? default_value : "", length);
    }
    value[length] = '\0';
    return static_cast<int>(length);
}

int property_set(const char* key, const char* value) {
    const size_t length = value != nullptr ? strlen(value) : 0;
    if (!isKey(key) || length > VALUE_MAX_LENGTH) {
        return -1;
    }
    try {
        std::lock_guard lock(sMutex);
        const fs::path file = folder() / key;
        return hasPlace(file) && store(file, value != nullptr ? value : "", length) ? 0 : -1;
    } catch (const std::exception& error) {
        runtime::ErrorOutput::get().print("properties: %s", error.what());
        return -1;
    }
}
