// Modem configurations: the list, and files to load, at their edges.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "clients/MbnConfigLoader.h"
#include "clients/MbnList.h"
#include "clients/PdcQmiClient.h"
#include "tests/support/Service.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

namespace {

/** Reads of this program that a signal interrupts, from now on. */
std::atomic<int> sInterruptions{0};

std::string patterned(size_t size) {
    std::string content(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        content[i] = static_cast<char>(i % 251);
    }
    return content;
}

fs::path runtimeFolder() {
    return getenv("OX_RUNTIME_DIR");
}

constexpr int64_t NONE = -1;

/** Makes a file of this size, or changes one. */
void makeFile(const fs::path& path, int64_t size) {
    if (size != NONE) {
        std::ofstream(path) << patterned(std::min<int64_t>(size, 5000));
        fs::resize_file(path, size);
    }
}

size_t openDescriptors() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

/** Makes a request, and returns its handler's lines without those of the answer. */
Lines handlerLines(Service& service, const std::string& method, const Lines& arguments = {}) {
    service.call(method, 7, arguments);
    service.forget();
    Service::runAll();
    const Lines log = service.log.take();
    return Lines(log.begin() + 1, log.end() - 2);
}

}  // namespace

extern "C" ssize_t read(int fd, void* buffer, size_t size) {
    if (sInterruptions > 0) {
        --sInterruptions;
        errno = EINTR;
        return -1;
    }
    return syscall(SYS_read, fd, buffer, size);
}

TEST(PdcList, TakesTheNamesOutOfTheLines) {
    const std::string p = "0123456789abcdef";
    const std::string big(1 << 20, 'n');
    const struct {
        std::string text;
        Lines mbns;
    } rows[] = {
            {"", {}},
            {p + "generic/row/mcfg_sw.mbn\n" + p + "last/mcfg_sw.mbn", {"generic/row/", "last/"}},
            {p + "a/mcfg_sw.mbn\r\n" + p + "b\r\n" + p + "c", {"a/", "b\r", "c"}},
            {p + "mcfg_sw.mbn\n" + p + "xmcfg_sw.mbn\n", {"x"}},
            {p + "a/mcfg_sw.mbn b/mcfg_sw.mbn\n", {"a/"}},
            {"mcfg_sw.mbn" + p + "a/mcfg_sw.mbn\n", {}},
            {p + "\n" + p + "\r\n" + p, {"", "\r", ""}},
            {p.substr(1) + "\n" + p.substr(2) + "\r\n\n\r\nx", {}},
            {p + big + "mcfg_sw.mbn\n" + p + "y\n", {big, "y"}},
    };
    const LogCapture log;
    for (const auto& row : rows) {
        EXPECT_EQ(parseMbnList("f", row.text), row.mbns) << row.text.substr(0, 99);
    }
}

// The list is a file of the device: it is answered whatever the modem's service does.
TEST(PdcList, ComesFromTheDevicesFile) {
    const fs::path path = mbnListFile();
    const fs::path away = path.string() + ".away";
    const std::string func = "handleGetMbnListMessage: ";
    const std::string failure = "E " + func + "failed to read " + path.string();
    const std::string failed = R"("error":1},"mbns":[]})";
    Service service;
    service.disconnect(MODEM_API_QMI_SERVICE_PDC);
    const auto expect = [&](const Lines& lines, const std::string& answer) {
        EXPECT_EQ(handlerLines(service, "getMbnList"), lines);
        EXPECT_THAT(service.client.take(), ElementsAre(HasSubstr(answer)));
    };
    fs::rename(path, away);
    expect({}, failed);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expect({failure}, failed);
    fs::remove(path);
    std::ofstream(path).put('\n');
    fs::resize_file(path, (16 << 20) + 1);
    expect({failure}, failed);
    std::ofstream(path) << "0123456789abcdefa/mcfg_sw.mbn\nshort\n0123456789abcdefb";
    expect({"I " + func + "got mbn {a/}", "I " + func + "got mbn {b}", "I " + func + "got 2 mbns"},
           R"("error":0},"mbns":["a/","b"]})");
    fs::rename(away, path);
}

TEST(PdcLoad, SendsTheFileInChunks) {
    const std::string folder = (runtimeFolder() / "").string();
    const std::string func = "handleLoadMbnConfigMessage: ";
    constexpr const char* MODEM_CALL = "modem_pdc_load_configuration";
    constexpr int64_t TOO_LARGE = 1LL << 31;
    // clang-format off
    const struct {
        const char* what;
        int64_t size;
        std::vector<int> chunks;    // that the modem is given
        const char* failure = "";
        size_t pathLength = 100;
        int64_t sizeLater = NONE;   // from the first chunk on
        std::vector<int> results{}; // of the modem
        int interruptions = 0;
    } rows[] = {
        {"missing", NONE, {}, "failed to fstat file: Bad file descriptor"},
        {"too large", TOO_LARGE, {}, "file of 2147483648 bytes is too large"},
        {"path that the identifier takes", 1, {1}, "", 116},
        {"path that it does not", 1, {1}, "", 117},
        {"longest path", 1, {1}, "", 123},
        {"shrinks", 2000, {900, 100}, "read fail", 100, 1000},
        {"grows", 2000, {900, 900, 900}, "", 100, 5000},
        {"second refused", 2000, {900, 900}, "failed to load mbn config", 100, NONE, {0, 5}},
        {"interrupted", 1000, {900, 100}, "", 100, NONE, {}, 3},
    };
    // clang-format on
    Service service;
    const size_t descriptors = openDescriptors();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const std::string path = folder + std::string(row.pathLength - folder.size(), 'p');
        makeFile(path, row.size);
        std::string sent;
        service.modem.reset();
        service.modem.returns(MODEM_CALL, row.results);
        service.modem.onCall(MODEM_CALL, [&](void* chunk) {
            sent += *static_cast<std::string*>(chunk);
            makeFile(path, row.sizeLater);
        });
        sInterruptions = row.interruptions;

        const std::string id = "MbnApp_" + path.substr(0, 116);
        const std::string total = std::to_string(row.size);
        Lines lines;
        if (row.size != NONE && row.size != TOO_LARGE) {
            lines = {"I " + func + "config = " + path, "I " + func + "configPath = " + id,
                     "I " + func + "totalConfigSize = " + total};
        }
        const bool fails = *row.failure != '\0';
        if (fails) {
            lines.push_back("E " + func + row.failure);
        }
        EXPECT_EQ(handlerLines(service, "loadMbnConfig", {path}), lines);
        EXPECT_THAT(service.client.take(), ElementsAre(HasSubstr(fails ? ":1}}" : ":0}}")));
        Lines calls;
        for (const int length : row.chunks) {
            calls.push_back(std::string(MODEM_CALL) + "(" + id + ", " + std::to_string(length) +
                            ", " + total + ")");
        }
        EXPECT_EQ(service.modem.calls(), calls);
        EXPECT_EQ(sent, patterned(sent.size()));
        EXPECT_EQ(sInterruptions, 0);
        fs::remove(path);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(PdcLoad, EndsAtOnceForWhatIsNoFile) {
    const fs::path pipe = runtimeFolder() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string func = " handleLoadMbnConfigMessage: ";
    Service service;
    const auto last = [&](const std::string& path) {
        return handlerLines(service, "loadMbnConfig", {path}).back();
    };
    EXPECT_EQ(last(runtimeFolder()), "E" + func + "read fail");
    EXPECT_EQ(last(pipe), "I" + func + "totalConfigSize = 0");
    service.disconnect(MODEM_API_QMI_SERVICE_PDC);
    EXPECT_EQ(last(std::string(124, 'p')), "E" + func + "PDC QMI service not connected");
    EXPECT_THAT(service.modem.calls(), IsEmpty());
}

TEST(PdcLoad, StopsTheProcessForAPathTooLong) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(loadMbnConfigFile("load", std::vector<uint8_t>(124, 'p')),
                 "F LIB-OX-MODEM: load: 124 bytes don't fit into 123, can't go on");
}
