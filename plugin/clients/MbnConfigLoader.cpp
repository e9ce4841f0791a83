#include "clients/MbnConfigLoader.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include <modem_api.h>

#include "clients/CheckedCopy.h"
#include "clients/InputFile.h"
#include "params/ModemLog.h"
#include "params/OwnedFd.h"

namespace {

constexpr size_t CHUNK_SIZE = 900;
constexpr char ID_PREFIX[] = "MbnApp_";
constexpr size_t ID_PATH_MAX = 116;  // characters of the path that an identifier takes

using Identifier = std::array<char, MODEM_PDC_CONFIG_ID_SIZE>;
static_assert(sizeof(ID_PREFIX) - 1 + ID_PATH_MAX + 1 == MODEM_PDC_CONFIG_ID_SIZE);

Identifier identifierOf(const char* path) {
    Identifier id{};
    char* end = std::copy_n(ID_PREFIX, sizeof(ID_PREFIX) - 1, id.data());
    std::copy_n(path, strnlen(path, ID_PATH_MAX), end);
    return id;
}

Errno sendChunks(const char* func, int fd, const Identifier& id, int32_t total) {
    for (int64_t remaining = total; remaining >= 1;) {
        std::array<uint8_t, CHUNK_SIZE> chunk{};
        const ssize_t count = readFrom(fd, chunk.data(), chunk.size());
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
    const OwnedFd file(openForReading(pathText.data()));
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        LOG_E("%s: failed to fstat file: %s", func, strerror(errno));
        return ERRNO_FAILED;
    }
    const int64_t size = status.st_size;
    if (size > std::numeric_limits<int32_t>::max()) {
        LOG_E("%s: file of %lld bytes is too large", func, static_cast<long long>(size));
        return ERRNO_FAILED;
    }
    const Identifier id = identifierOf(pathText.data());
    const auto total = static_cast<int32_t>(size);
    LOG_I("%s: config = %s", func, pathText.data());
    LOG_I("%s: configPath = %s", func, id.data());
    LOG_I("%s: totalConfigSize = %d", func, total);
    return sendChunks(func, file.get(), id, total);
}
