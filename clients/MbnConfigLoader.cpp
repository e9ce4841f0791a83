#include "clients/MbnConfigLoader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include <modem_api.h>

#include "clients/CheckedCopy.h"
#include "params/ModemLog.h"

namespace {

constexpr size_t CHUNK_SIZE = 900;
constexpr char ID_PREFIX[] = "MbnApp_";
constexpr size_t ID_PATH_MAX = 116;  // characters of the path that an identifier takes

using Identifier = std::array<char, MODEM_PDC_CONFIG_ID_SIZE>;
static_assert(sizeof(ID_PREFIX) - 1 + ID_PATH_MAX + 1 == MODEM_PDC_CONFIG_ID_SIZE);

class ConfigFile {
public:
    // Non-blocking, so that a path that names a pipe does not hold up the client.
    explicit ConfigFile(const char* path) : mFd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~ConfigFile() {
        if (mFd != -1) {
            close(mFd);
        }
    }
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;

    /** The file's size, or -1 with errno, also when the file could not be opened. */
    int64_t size() const {
        struct stat info {};
        return fstat(mFd, &info) == 0 ? info.st_size : -1;
    }

    ssize_t readChunk(std::array<uint8_t, CHUNK_SIZE>& chunk) const {
        ssize_t count = 0;
        do {
            count = read(mFd, chunk.data(), chunk.size());
        } while (count < 0 && errno == EINTR);
        return count;
    }

private:
    const int mFd;
};

Identifier identifierOf(const char* path) {
    Identifier id{};
    char* end = std::copy_n(ID_PREFIX, sizeof(ID_PREFIX) - 1, id.data());
    std::copy_n(path, strnlen(path, ID_PATH_MAX), end);
    return id;
}

Errno sendChunks(const char* func, const ConfigFile& file, const Identifier& id, int32_t total) {
    for (int64_t remaining = total; remaining >= 1;) {
        std::array<uint8_t, CHUNK_SIZE> chunk{};
        const ssize_t count = file.readChunk(chunk);
        if (count <= 0) {
            LOG_E("%s: read fail", func);
            return ERRNO_FAILED;
        }
        if (modem_pdc_load_configuration(id.data(), chunk.data(), static_cast<int32_t>(count),
                                         total) != 0) {
            LOG_E("%s: failed to load mbn config", func);
            return ERRNO_FAILED;
        }
        remaining -= count;
    }
    return ERRNO_SUCCESS;
}

}  // namespace

Errno loadMbnConfigFile(const char* func, const std::vector<uint8_t>& path) {
    std::array<char, MODEM_PDC_CONFIG_ID_SIZE> pathText{};
    checkedCopy(func, pathText.data(), pathText.size() - 1, path.data(), path.size());
    const ConfigFile file(pathText.data());
    const int64_t size = file.size();
    if (size < 0) {
        LOG_E("%s: failed to fstat file: %s", func, strerror(errno));
        return ERRNO_FAILED;
    }
    if (size > std::numeric_limits<int32_t>::max()) {
        LOG_E("%s: file of %lld bytes is too large", func, static_cast<long long>(size));
        return ERRNO_FAILED;
    }
    const Identifier id = identifierOf(pathText.data());
    const auto total = static_cast<int32_t>(size);
    LOG_I("%s: config = %s", func, pathText.data());
    LOG_I("%s: configPath = %s", func, id.data());
    LOG_I("%s: totalConfigSize = %d", func, total);
    return sendChunks(func, file, id, total);
}
