#include "clients/MbnList.h"

#include <sys/stat.h>

#include "clients/InputFile.h"
#include "params/ModemLog.h"
#include "params/OwnedFd.h"

namespace {

constexpr size_t LIST_MAX = 16 << 20;  // bytes of a list that is read
constexpr size_t NAME_AT = 16;
constexpr std::string_view FILE_NAME = "mcfg_sw.mbn";

bool readRegular(int fd, std::string& text) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    char part[4096];
    ssize_t count = 0;
    while (text.size() <= LIST_MAX && (count = readFrom(fd, part, sizeof(part))) > 0) {
        text.append(part, static_cast<size_t>(count));
    }
    return count == 0;
}

/** Removes the first line from `list` and returns it without its newline. A "\r" stays. */
std::string_view takeLine(std::string_view& list) {
    const size_t end = list.find('\n');
    const std::string_view line = list.substr(0, end);
    list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
    return line;
}

}  // namespace

Errno readMbnList(const char* func, std::vector<std::string>& mbns) {
    const OwnedFd file(openForReading(mbnListFile()));
    if (file.get() < 0) {
        return ERRNO_FAILED;
    }
    std::string text;
    if (!readRegular(file.get(), text)) {
        LOG_E("%s: failed to read %s", func, mbnListFile());
        return ERRNO_FAILED;
    }
    mbns = parseMbnList(func, text);
    return ERRNO_SUCCESS;
}

std::vector<std::string> parseMbnList(const char* func, std::string_view list) {
    std::vector<std::string> mbns;
    while (!list.empty()) {
        const std::string_view line = takeLine(list);
        const size_t end = line.find(FILE_NAME);
        if (line.size() < NAME_AT || end <= NAME_AT) {
            continue;
        }
        mbns.emplace_back(line.substr(NAME_AT, end == line.npos ? end : end - NAME_AT));
        LOG_I("%s: got mbn {%s}", func, mbns.back().c_str());
    }
    LOG_I("%s: got %zu mbns", func, mbns.size());
    return mbns;
}
