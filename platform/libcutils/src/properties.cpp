#include <cutils/properties.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <system_error>

#include "runtime/ErrorOutput.h"
#include "runtime/RuntimeDir.h"

namespace {

constexpr size_t VALUE_MAX_LENGTH = PROPERTY_VALUE_MAX - 1;

/** Orders the writers of this process: they share the scratch file. Constant-initialised. */
std::mutex sMutex;

class File {
public:
    File(const std::string& path, int flags) : mFd(open(path.c_str(), flags | O_CLOEXEC, 0600)) {}
    ~File() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool isOpen() const { return mFd >= 0; }
    bool writeAll(const char* data, size_t size) const {
        return write(mFd, data, size) == static_cast<ssize_t>(size);
    }
    ssize_t readUpTo(char* data, size_t size) const { return read(mFd, data, size); }
    bool sync() const { return fsync(mFd) == 0; }

private:
    const int mFd;
};

/** One file a property. Makes the folder when missing; throws std::system_error. */
std::string folder() {
    const std::string path = runtime::stateDirectory() + "/properties";
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return path;
}

bool isKey(const char* key) {
    return key != nullptr && *key != '\0' && *key != '.' && strchr(key, '/') == nullptr;
}

/** Write, sync, rename, sync the folder: a loss of power leaves the old text or the new one. */
bool store(const std::string& folder, const std::string& key, const char* value, size_t length) {
    const std::string scratch = folder + "/.new-" + std::to_string(getpid());
    {
        const File file(scratch, O_WRONLY | O_CREAT | O_TRUNC);
        if (!file.isOpen() || !file.writeAll(value, length) || !file.sync()) {
            unlink(scratch.c_str());
            return false;
        }
    }
    if (rename(scratch.c_str(), (folder + "/" + key).c_str()) != 0) {
        unlink(scratch.c_str());
        return false;
    }
    const File directory(folder, O_RDONLY | O_DIRECTORY);
    return directory.isOpen() && directory.sync();
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
    ssize_t length = 0;
    if (isKey(key)) {
        try {
            const File file(folder() + "/" + key, O_RDONLY);
            length = file.isOpen() ? file.readUpTo(value, VALUE_MAX_LENGTH) : 0;
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
        return store(folder(), key, value != nullptr ? value : "", length) ? 0 : -1;
    } catch (const std::exception& error) {
        runtime::ErrorOutput::get().print("properties: %s", error.what());
        return -1;
    }
}
